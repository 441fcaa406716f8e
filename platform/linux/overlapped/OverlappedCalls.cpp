#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/overlapped.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/overlapped/RequestPool.h>

namespace kv::platform
{

namespace
{

std::uint64_t PlaceOf(OVERLAPPED const & overlapped)
{
    return std::uint64_t{overlapped.OffsetHigh} << 32 | overlapped.Offset;
}

BOOL StartPlain(File & file, Transfer const & transfer, DWORD * transferred, OVERLAPPED & overlapped)
{
    if (file.type == FileType::Disk)
    {
        return FailWith(StartRequest(file, transfer, overlapped, false, nullptr));
    }
    // A pipe may stay silent for long, and would keep a worker from the files.
    DWORD done = 0;
    DWORD const error = transfer.writing ? file.WriteAt(transfer.buffer, transfer.count, transfer.place, done)
                                         : file.ReadAt(transfer.buffer, transfer.count, transfer.place, done);
    SetResult(overlapped, error, done);
    if (transferred != nullptr)
    {
        *transferred = done;
    }
    if (overlapped.hEvent != nullptr)
    {
        if (auto const event = LookUp<Event>(overlapped.hEvent))
        {
            event->Set();
        }
    }
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

BOOL StartWithRoutine(
    HANDLE handle, DWORD rights, Transfer transfer, OVERLAPPED * overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    if (overlapped == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    auto const file = LookUp<File>(handle);
    if (!file)
    {
        return FALSE;
    }
    if ((file.Access() & rights) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    transfer.place = PlaceOf(*overlapped);
    if (transfer.writing && (file.Access() & FILE_WRITE_DATA) == 0)
    {
        transfer.place = appending;
    }
    if (transfer.place >> 63 != 0 && !(transfer.writing && transfer.place == appending))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    DWORD const before = GetLastError();
    DWORD const error = StartRequest(*file, transfer, *overlapped, true, routine);
    SetLastError(error == ERROR_IO_PENDING ? before : error);
    return error == ERROR_IO_PENDING;
}

} // namespace

BOOL StartOverlappedRead(File & file, void * buffer, DWORD count, DWORD * transferred, OVERLAPPED & overlapped) noexcept
{
    return StartPlain(file, {buffer, count, PlaceOf(overlapped), false}, transferred, overlapped);
}

BOOL StartOverlappedWrite(
    File & file, void const * buffer, DWORD count, std::uint64_t place, DWORD * transferred,
    OVERLAPPED & overlapped) noexcept
{
    return StartPlain(file, {const_cast<void *>(buffer), count, place, true}, transferred, overlapped);
}

} // namespace kv::platform

using namespace kv::platform;

BOOL WINAPI
ReadFileEx(HANDLE file, LPVOID buffer, DWORD count, OVERLAPPED * overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    CheckOutputs(overlapped);
    return StartWithRoutine(file, FILE_READ_DATA, {buffer, count, 0, false}, overlapped, routine);
}

BOOL WINAPI
WriteFileEx(HANDLE file, LPCVOID buffer, DWORD count, OVERLAPPED * overlapped, LPOVERLAPPED_COMPLETION_ROUTINE routine)
{
    CheckOutputs(overlapped);
    return StartWithRoutine(
        file, FILE_WRITE_DATA | FILE_APPEND_DATA, {const_cast<void *>(buffer), count, 0, true}, overlapped, routine);
}

BOOL WINAPI GetOverlappedResult(HANDLE, OVERLAPPED * overlapped, LPDWORD transferred, BOOL wait)
{
    CheckInputs(overlapped);
    CheckOutputs(transferred);
    // The file is not needed to find the request, so that a result can be had after the handle was closed.
    if (!HasOverlappedIoCompleted(overlapped))
    {
        if (!wait)
        {
            return FailWith(ERROR_IO_INCOMPLETE);
        }
        DWORD const before = GetLastError();
        WaitForRequest(*overlapped);
        if (overlapped->hEvent != nullptr)
        {
            WaitForSingleObject(overlapped->hEvent, INFINITE);
        }
        SetLastError(before);
    }
    *transferred = static_cast<DWORD>(overlapped->InternalHigh);
    DWORD const error = ErrorOfStatus(overlapped->Internal);
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

BOOL WINAPI CancelIo(HANDLE file)
{
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if (Thread const * const thread = Thread::CurrentIfAny())
    {
        CancelRequests(*object, thread, nullptr);
    }
    return TRUE;
}

BOOL WINAPI CancelIoEx(HANDLE file, OVERLAPPED * overlapped)
{
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    return CancelRequests(*object, nullptr, overlapped) != 0 ? TRUE : FailWith(ERROR_NOT_FOUND);
}
