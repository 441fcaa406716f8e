#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/FileObject.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

constexpr std::uint64_t atPosition = appending - 1;

/// The place of a transfer. False for what is none; `appending` is one for a write only.
bool PlaceOf(File const & file, OVERLAPPED const & overlapped, bool writing, std::uint64_t & place)
{
    place = std::uint64_t{overlapped.OffsetHigh} << 32 | overlapped.Offset;
    if (place == atPosition && !file.IsOverlapped())
    {
        std::int64_t const position = file.Position();
        place = position >= 0 ? static_cast<std::uint64_t>(position) : 0;
    }
    return place >> 63 == 0 || (writing && place == appending);
}

/// The end of a transfer at a place on a synchronous handle: the position stands behind it.
BOOL FinishAtPlace(
    File const & file, std::uint64_t place, DWORD error, DWORD done, DWORD * transferred, OVERLAPPED & overlapped)
{
    if (place != appending)
    {
        file.MoveTo(static_cast<std::int64_t>(place + done));
    }
    SetResult(overlapped, error, done);
    if (transferred != nullptr)
    {
        *transferred = done;
    }
    return error == ERROR_SUCCESS ? TRUE : FailWith(error);
}

} // namespace

BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD transferred, OVERLAPPED * overlapped)
{
    CheckOutputs(transferred, overlapped);
    DWORD ignored = 0;
    DWORD & done = transferred != nullptr ? *transferred : ignored;
    done = 0;
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if ((object.Access() & FILE_READ_DATA) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    if (overlapped == nullptr)
    {
        DWORD const error = object->IsOverlapped() ? ERROR_INVALID_PARAMETER : object->Read(buffer, count, done);
        return error == ERROR_SUCCESS ? TRUE : FailWith(error);
    }
    std::uint64_t place = 0;
    if (!PlaceOf(*object, *overlapped, false, place))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if (object->IsOverlapped())
    {
        return StartOverlappedRead(*object, buffer, count, transferred, *overlapped);
    }
    DWORD const error = object->ReadAt(buffer, count, place, done);
    return FinishAtPlace(*object, place, error, done, transferred, *overlapped);
}

BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD count, LPDWORD transferred, OVERLAPPED * overlapped)
{
    CheckOutputs(transferred, overlapped);
    DWORD ignored = 0;
    DWORD & done = transferred != nullptr ? *transferred : ignored;
    done = 0;
    auto const object = LookUp<File>(file);
    if (!object)
    {
        return FALSE;
    }
    if ((object.Access() & (FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0)
    {
        return FailWith(ERROR_ACCESS_DENIED);
    }
    if (overlapped == nullptr)
    {
        DWORD const error = object->IsOverlapped() ? ERROR_INVALID_PARAMETER : object->Write(buffer, count, done);
        return error == ERROR_SUCCESS ? TRUE : FailWith(error);
    }
    std::uint64_t place = 0;
    if (!PlaceOf(*object, *overlapped, true, place))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if ((object.Access() & FILE_WRITE_DATA) == 0)
    {
        place = appending; // who may only append, appends wherever the request says
    }
    if (object->IsOverlapped())
    {
        return StartOverlappedWrite(*object, buffer, count, place, transferred, *overlapped);
    }
    DWORD const error = object->WriteAt(buffer, count, place, done);
    return FinishAtPlace(*object, place, error, done, transferred, *overlapped);
}
