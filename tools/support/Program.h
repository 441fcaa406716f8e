#pragma once

#include <kvcore/tools/support/SourceStream.h>

#include <string>
#include <string_view>
#include <vector>

namespace kv::tools
{

/// The streams of a program. On the command line they are the process's own; a test hands in others and so runs the
/// program without a process.
struct Console
{
    SourceStream & input;
    OutputStream & output;
    OutputStream & error;
    bool asks = false;             ///< somebody sits at `input` and can be asked
    bool outputIsTerminal = false; ///< somebody reads `output`; else it goes into a file or to another program
};

/// Says something on the error stream, as one printable line "program: text". A failure there stays unsaid: nowhere is
/// left to say it.
void Complain(Console & console, std::string_view program, std::string_view text);

/// A result on its way to the output: as it is for files and programs, printable for somebody at a terminal. Lines and
/// tabs stay in any case.
[[nodiscard]] std::string Presented(Console const & console, std::string text);

/// What a program does with its arguments (UTF-8, without its own name): an exit code.
using ProgramFunction = int (*)(std::vector<std::string> const & arguments, Console & console);

/// The body of `main`: runs the program over the process's standard streams and closes the output, whose late
/// failures are reported and end in `ExitIo`.
[[nodiscard]] int RunProgram(int count, char ** values, std::string_view name, ProgramFunction function);

} // namespace kv::tools
