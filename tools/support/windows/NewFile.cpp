#include <kvcore/tools/support/NewFile.h>

#include <cerrno>
#include <cwchar>
#include <fcntl.h>
#include <io.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/StdioStreams.h>

namespace kv::tools
{

namespace fs = std::filesystem;

namespace
{

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// With the words of the C library where it has a number for the failure, as for all other files.
[[noreturn]] void Fail(DWORD error)
{
    switch (error)
    {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        throw IoException(ENOENT);
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
        throw IoException(EACCES);
    case ERROR_DISK_FULL:
        throw IoException(ENOSPC);
    default:
        break;
    }
    throw IoException(String::FromError(static_cast<LONG>(error)));
}

HANDLE HandleOf(int descriptor)
{
    return reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor));
}

int DescriptorOf(HANDLE handle)
{
    int const descriptor = ::_open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_BINARY);
    if (descriptor < 0)
    {
        ::CloseHandle(handle);
        Fail(ERROR_TOO_MANY_OPEN_FILES);
    }
    return descriptor;
}

} // namespace

NewFile::NewFile(fs::path const & path)
    : target(path), folder(target.has_parent_path() ? target.parent_path() : "."), descriptor(-1)
{
    while (descriptor < 0)
    {
        fs::path const name = folder / NewName();
        // Shared for everything: replacing opens it once more. RemoveLeftovers asks for it alone, and so sees that it
        // is open.
        HANDLE const file = ::CreateFileW(
            name.c_str(), GENERIC_READ | GENERIC_WRITE, shareAll, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE)
        {
            descriptor = DescriptorOf(file);
            temporary = name;
        }
        else if (::GetLastError() != ERROR_FILE_EXISTS)
        {
            Fail(::GetLastError());
        }
    }
}

NewFile::~NewFile()
{
    if (descriptor >= 0)
    {
        ::_close(descriptor);
    }
    if (!temporary.empty())
    {
        ::DeleteFileW(temporary.c_str());
    }
}

void NewFile::Publish()
{
    if (!::FlushFileBuffers(HandleOf(descriptor)))
    {
        Fail(::GetLastError());
    }
    // Replacing keeps what belongs to the old file beside its bytes; not every file system can.
    bool const exists = ::GetFileAttributesW(target.c_str()) != INVALID_FILE_ATTRIBUTES;
    bool replaced = exists && ::ReplaceFileW(target.c_str(), temporary.c_str(), nullptr, 0, nullptr, nullptr) != FALSE;
    if (!replaced)
    {
        // Some systems do not rename a file that is open.
        ::_close(descriptor);
        descriptor = -1;
        replaced = exists && ::ReplaceFileW(target.c_str(), temporary.c_str(), nullptr, 0, nullptr, nullptr) != FALSE;
    }
    if (!replaced &&
        !::MoveFileExW(temporary.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    {
        Fail(::GetLastError());
    }
    temporary.clear();
}

void NewFile::RemoveLeftovers(fs::path const & folder) noexcept
{
    WIN32_FIND_DATAW entry = {};
    fs::path const place = folder.empty() ? fs::path(".") : folder;
    HANDLE const search = ::FindFirstFileW((place / ".kvsave-*.tmp").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
    {
        return;
    }
    do
    {
        if (!IsOwnName(String(entry.cFileName).Utf8()))
        {
            continue;
        }
        fs::path const file = place / entry.cFileName;
        HANDLE const alone = ::CreateFileW(
            file.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING,
            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        if (alone != INVALID_HANDLE_VALUE)
        {
            ::CloseHandle(alone); // which removes it
        }
    } while (::FindNextFileW(search, &entry));
    ::FindClose(search);
}

OutputTarget OpenTarget(fs::path const & path)
{
    DWORD const attributes = ::GetFileAttributesW(path.c_str());
    // Asked for here because Wine, run by the superuser, opens read-only files for writing.
    constexpr DWORD refused = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY;
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & refused) != 0)
    {
        Fail(ERROR_ACCESS_DENIED);
    }
    HANDLE const file =
        ::CreateFileW(path.c_str(), GENERIC_WRITE, shareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        DWORD const error = ::GetLastError();
        return error == ERROR_FILE_NOT_FOUND ? OutputTarget{path, -1} : (Fail(error), OutputTarget{});
    }
    if (::GetFileType(file) != FILE_TYPE_DISK)
    {
        return {path, DescriptorOf(file)};
    }
    // The file that a link leads to is the one that is replaced.
    std::wstring whole(32768, L'\0');
    DWORD const length =
        ::GetFinalPathNameByHandleW(file, whole.data(), static_cast<DWORD>(whole.size()), FILE_NAME_NORMALIZED);
    ::CloseHandle(file);
    bool const isLink = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    whole.resize(length < whole.size() ? length : 0);
    return {isLink && !whole.empty() ? fs::path(whole) : path, -1};
}

} // namespace kv::tools
