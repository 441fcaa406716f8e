#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/directories/FileStatus.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/PathSyntax.h>
#include <kvcore/platform/linux/paths/ShortNames.h>

#include "FoundNames.h"

namespace kv::platform
{

namespace
{

/// A directory of at most this many matches is looked at as a whole, and closed: walks that go deep would run out of
/// descriptors otherwise. Of a larger one this many entries are looked at in one go.
constexpr std::size_t smallDirectory = 256;

/// Fills a record of a name that has this status.
void FillRecord(
    WIN32_FIND_DATAW & data, char const * name, std::size_t count, struct statx const & status, DWORD attributes)
{
    std::memset(&data, 0, sizeof data);
    data.dwFileAttributes = attributes;
    data.ftCreationTime = CreationTimeOf(status);
    data.ftLastAccessTime = FileTimeOf(status.stx_atime);
    data.ftLastWriteTime = FileTimeOf(status.stx_mtime);
    std::uint64_t const size = SizeOf(status);
    data.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data.nFileSizeLow = static_cast<DWORD>(size);
    data.dwReserved0 = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? IO_REPARSE_TAG_SYMLINK : 0;
    bool const dots = name[0] == '.' && (count == 1 || (count == 2 && name[1] == '.'));
    if (dots)
    {
        std::fill_n(data.cFileName, count, TEXT('.'));
        return;
    }
    std::size_t const length = DecodeName(name, count, data.cFileName);
    if (!IsShortName(data.cFileName, length))
    {
        MakeShortName(data.cFileName, length, data.cAlternateFileName);
    }
}

/// One entry, as much of it as the record needs.
struct Found
{
    struct statx status;
    DWORD attributes;
    bool exists;
};

Found LookAt(int directory, char const * path, char const * name)
{
    Found found;
    found.exists = statx(directory, path, AT_SYMLINK_NOFOLLOW, statusMask, &found.status) == 0;
    if (!found.exists)
    {
        // A directory that may be read but not searched tells its names and nothing more.
        found.exists = errno != ENOENT;
        std::memset(&found.status, 0, sizeof found.status);
        found.attributes = FILE_ATTRIBUTE_NORMAL;
        return found;
    }
    found.attributes = S_ISLNK(found.status.stx_mode) ? FollowLink(directory, path, name, found.status)
                                                      : AttributesOf(found.status, name);
    return found;
}

} // namespace

/// A search that goes on.
class Find final : public KernelObject
{
public:
    static constexpr ObjectKind kind = ObjectKind::Find;

    Find() noexcept : KernelObject(kind) {}

    /// Starts with the names of a directory, whose descriptor it takes over. 0 or an errno value. May throw
    /// std::bad_alloc.
    int Start(int directory, NameMask const & mask, bool withDots);

    /// Starts with the one entry that a path names. May throw std::bad_alloc.
    void StartOne(NativePath const & path);

    /// The next entry; false at the end.
    bool Next(WIN32_FIND_DATAW & data) noexcept;

private:
    ~Find() override
    {
        Close();
    }
    void Close() noexcept
    {
        if (descriptor >= 0)
        {
            close(descriptor);
            descriptor = -1;
        }
    }
    std::size_t Count() const noexcept
    {
        return dots.size() + names.Count();
    }
    char const * Name(std::size_t index) const noexcept
    {
        return index < dots.size() ? dots[index] : names.Name(index - dots.size());
    }
    void LookAhead() noexcept;

    std::mutex mutex;
    int descriptor = -1;
    std::vector<char const *> dots;
    FoundNames names;
    std::size_t next = 0;
    std::vector<Found> ahead; ///< entries from `firstAhead` on
    std::size_t firstAhead = 0;
};

int Find::Start(int directory, NameMask const & mask, bool withDots)
{
    descriptor = directory;
    for (char const * const name : {".", ".."})
    {
        if (withDots && mask.Matches(name[1] == 0 ? TEXT(".") : TEXT(".."), std::strlen(name)))
        {
            dots.push_back(name);
        }
    }
    int const error = names.Read(descriptor, mask);
    ahead.reserve(std::min(Count(), smallDirectory));
    return error;
}

void Find::StartOne(NativePath const & path)
{
    names.Add(path.CStr() + path.NameStart(), path.Length() - path.NameStart());
    ahead.push_back(LookAt(AT_FDCWD, path.CStr(), Name(0)));
}

/// Looks at the next entries, and closes the directory behind the last one.
void Find::LookAhead() noexcept
{
    ahead.clear();
    firstAhead = next;
    std::size_t const end = std::min(Count(), next + smallDirectory);
    for (std::size_t i = next; i < end; i++)
    {
        ahead.push_back(LookAt(descriptor, Name(i), Name(i)));
    }
    if (end == Count())
    {
        Close();
    }
}

bool Find::Next(WIN32_FIND_DATAW & data) noexcept
{
    std::lock_guard const guard(mutex);
    while (next < Count())
    {
        if (next >= firstAhead + ahead.size())
        {
            LookAhead();
        }
        Found const & found = ahead[next - firstAhead];
        char const * const name = Name(next++);
        if (found.exists)
        {
            FillRecord(data, name, std::strlen(name), found.status, found.attributes);
            return true;
        }
    }
    return false;
}

namespace
{

/// A pattern in its two parts: the directory, as far as the mask, and the mask without what does not count at its end.
struct Pattern
{
    WString directory;
    WCHAR const * mask;
    std::size_t count;
};

Pattern Split(WCHAR const * text)
{
    PathStart const start = ParseStart(text);
    bool const literal = start.kind == PathKind::Literal;
    WCHAR const * mask = start.rest;
    for (WCHAR const * at = mask; *at != 0; at++)
    {
        if (*at == '\\' || (*at == '/' && !literal))
        {
            mask = at + 1;
        }
    }
    std::size_t count = WString::traits_type::length(mask);
    while (!literal && count > 0 && (mask[count - 1] == '.' || mask[count - 1] == ' '))
    {
        count--;
    }
    WString directory(text, mask);
    return {directory.empty() ? TEXT(".") : directory, mask, count};
}

/// Opens the directory of a search; -1 with the last error set.
int OpenDirectory(WCHAR const * text, NativePath & path)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    if (!path.Spell(text))
    {
        return -1;
    }
    int descriptor = open(path.CStr(), flags);
    if (descriptor < 0 && errno == ENOENT)
    {
        if (!path.Resolve(Look::Existing))
        {
            bool const missing = GetLastError() == ERROR_FILE_NOT_FOUND;
            SetLastError(missing ? ERROR_PATH_NOT_FOUND : GetLastError());
            return -1;
        }
        descriptor = open(path.CStr(), flags);
    }
    if (descriptor < 0)
    {
        int const error = errno;
        // ENOTDIR stands for the directory itself being a file, and for a file on the way to it.
        bool const isFile = error == ENOTDIR && path.Resolve(Look::Existing);
        SetLastError(isFile ? ERROR_DIRECTORY : (error == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorOfErrno(error)));
    }
    return descriptor;
}

/// The handle of a search whose first entry is taken; INVALID_HANDLE_VALUE with the last error set.
HANDLE Begin(Ref<Find> const & find, WIN32_FIND_DATAW & data)
{
    if (!find->Next(data))
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE const handle = HandleTable::Create(*find, 0);
    return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
}

HANDLE FindByMask(Pattern const & pattern, WIN32_FIND_DATAW & data)
{
    NameMask const mask(pattern.mask, pattern.count);
    Ref<Find> const find = Ref<Find>::Adopt(new Find);
    NativePath path;
    int const directory = OpenDirectory(pattern.directory.c_str(), path);
    if (directory < 0)
    {
        return INVALID_HANDLE_VALUE;
    }
    int const error = find->Start(directory, mask, !path.IsDriveRoot());
    if (error != 0)
    {
        FailErrno(error);
        return INVALID_HANDLE_VALUE;
    }
    return Begin(find, data);
}

/// A name without wildcards is found as any file is, whatever the case and be it a short name.
HANDLE FindByName(WCHAR const * name, Pattern const & pattern, WIN32_FIND_DATAW & data)
{
    NativePath path;
    if (!path.Translate(name, Look::Existing))
    {
        // What no name has is only not found, if its directory is there.
        NativePath directory;
        if (GetLastError() == ERROR_INVALID_NAME && directory.Translate(pattern.directory.c_str(), Look::Existing))
        {
            SetLastError(ERROR_FILE_NOT_FOUND);
        }
        return INVALID_HANDLE_VALUE;
    }
    if (path.IsDriveRoot())
    {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    Ref<Find> const find = Ref<Find>::Adopt(new Find);
    find->StartOne(path);
    return Begin(find, data);
}

HANDLE FindFirst(WCHAR const * text, WIN32_FIND_DATAW & data)
{
    Pattern const pattern = Split(text);
    if (NameMask::HasWildcards(pattern.mask, pattern.count))
    {
        return FindByMask(pattern, data);
    }
    WString const last = pattern.mask;
    bool const isName = pattern.count > 0 || last == TEXT(".") || last == TEXT("..");
    if (isName)
    {
        return FindByName(text, pattern, data);
    }
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

} // namespace

} // namespace kv::platform

using namespace kv::platform;

HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW * data)
try
{
    CheckText(pattern);
    CheckOutputs(data);
    if (pattern == nullptr || pattern[0] == 0 || data == nullptr)
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    return FindFirst(pattern, *data);
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI FindNextFileW(HANDLE find, WIN32_FIND_DATAW * data)
{
    CheckOutputs(data);
    auto const search = LookUp<Find>(find);
    if (!search)
    {
        return FALSE;
    }
    return search->Next(*data) ? TRUE : FailWith(ERROR_NO_MORE_FILES);
}

BOOL WINAPI FindClose(HANDLE find)
{
    {
        auto const search = LookUp<Find>(find);
        if (!search)
        {
            return FALSE;
        }
    }
    return HandleTable::Close(find);
}
