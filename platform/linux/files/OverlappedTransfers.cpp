#include "FileObject.h"

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

// Transfers on handles that were opened for overlapped input and output. They may be finished when the call that starts
// them returns, and here they are.

namespace kv::platform
{

namespace
{

std::uint64_t PlaceOf(OVERLAPPED const & overlapped)
{
    return std::uint64_t{overlapped.OffsetHigh} << 32 | overlapped.Offset;
}

BOOL Finish(DWORD error, DWORD done, DWORD * transferred, OVERLAPPED & overlapped)
{
    SetResult(overlapped, error, done);
    if (transferred != nullptr)
    {
        *transferred = done;
    }
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

} // namespace

void SetResult(OVERLAPPED & overlapped, DWORD error, DWORD transferred) noexcept
{
    // System errors have a place among the status values; the end of a file is known by a value of its own.
    constexpr ULONG_PTR statusOfError = 0xC0070000u;
    constexpr ULONG_PTR statusEndOfFile = 0xC0000011u;
    overlapped.InternalHigh = transferred;
    overlapped.Internal = error == ERROR_SUCCESS ? 0
        : error == ERROR_HANDLE_EOF              ? statusEndOfFile
                                                 : statusOfError | error;
}

BOOL StartOverlappedRead(File & file, void * buffer, DWORD count, DWORD * transferred, OVERLAPPED & overlapped) noexcept
{
    DWORD done = 0;
    DWORD const error = file.ReadAt(buffer, count, PlaceOf(overlapped), done);
    return Finish(error, done, transferred, overlapped);
}

BOOL StartOverlappedWrite(
    File & file, void const * buffer, DWORD count, DWORD * transferred, OVERLAPPED & overlapped) noexcept
{
    DWORD done = 0;
    DWORD const error = file.WriteAt(buffer, count, PlaceOf(overlapped), done);
    return Finish(error, done, transferred, overlapped);
}

} // namespace kv::platform
