#pragma once

#include <kvcore/tools/support/StdioStreams.h>

#include <stdexcept>
#include <string>

namespace kv::tools
{

/// The command line cannot be understood. The text says why, and what would be.
struct UsageError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// The operating system refused something. The text is the system's; `subject` says what was tried on which file.
struct IoFailure : StreamBase::Exception
{
    IoFailure(StreamBase::Exception const & cause, std::string what, int number = 0)
        : StreamBase::Exception(cause), subject(std::move(what)), error(number)
    {
    }
    IoFailure(IoException const & cause, std::string what) : IoFailure(cause, std::move(what), cause.error) {}

    std::string subject; ///< such as "cannot read clip.dat"
    int error;           ///< the value of `errno`, or 0 if it is not known
};

/// The same for what the program writes, which no command can go on after.
struct OutputFailure : IoFailure
{
    using IoFailure::IoFailure;
};

/// Nobody reads the output any more. It ends the program without a word.
struct ClosedPipe : StreamBase::Exception
{
};

/// Encoded data is not what its format promises. The text is the library's.
struct DamagedData : StreamBase::Exception
{
    DamagedData(StreamBase::Exception const & cause, std::string what)
        : StreamBase::Exception(cause), place(std::move(what))
    {
    }

    std::string place; ///< the stage and the byte, such as "stage crc, in the block at byte 4096"
};

} // namespace kv::tools
