#pragma once

namespace kv::tools
{

/// What the programs of this tree tell their caller. A program may add codes of its own from 5 on.
enum ExitCode : int
{
    ExitOk = 0,
    ExitFailed = 1,       ///< the work was done and the answer is no: a sum differs, a file is missing
    ExitUsage = 2,        ///< the command line asks for nothing that the program knows
    ExitDamaged = 3,      ///< the data is not what its format promises
    ExitIo = 4,           ///< the system could not open, read or write something
    ExitClosedPipe = 141, ///< nobody reads the output any more: what a shell reports for a program that SIGPIPE ended
};

} // namespace kv::tools
