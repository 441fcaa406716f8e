#include <kvcore/platform/HeldFolder.h>

#include <kvcore/platform/win32.h>

namespace kv::platform
{

struct HeldFolder::Hold
{
    Hold(HANDLE openHandle, WString const & openPath, std::shared_ptr<Hold const> const & above)
        : handle(openHandle), path(openPath), parent(above)
    {
    }
    Hold(Hold const &) = delete;
    Hold & operator=(Hold const &) = delete;
    ~Hold()
    {
        ::CloseHandle(handle);
    }

    HANDLE handle;
    WString path;
    std::shared_ptr<Hold const> parent; ///< held as long as this one, so that the path stays
};

namespace
{

/// Opens without letting others rename or remove the folder. INVALID_HANDLE_VALUE with the last error set for what is
/// no folder.
HANDLE OpenFolder(WString const & path, HeldFolder::Links links)
{
    DWORD const flags =
        FILE_FLAG_BACKUP_SEMANTICS | (links == HeldFolder::Links::Refused ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
    HANDLE const handle = ::CreateFileW(
        path.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, flags, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
    {
        return handle;
    }
    BY_HANDLE_FILE_INFORMATION information = {};
    bool const known = ::GetFileInformationByHandle(handle, &information) != FALSE;
    bool const isLink = (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (!known || (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
        (isLink && links == HeldFolder::Links::Refused))
    {
        ::CloseHandle(handle);
        ::SetLastError(ERROR_DIRECTORY);
        return INVALID_HANDLE_VALUE;
    }
    return handle;
}

/// The path without links in it, which could be made to lead elsewhere; the given one where the system does not tell.
WString FinalPath(HANDLE handle, WString const & given)
{
    WString path(32768, L'\0');
    DWORD const length =
        ::GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), FILE_NAME_NORMALIZED);
    path.resize(length < path.size() ? length : 0);
    return path.empty() || ::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES ? given : path;
}

} // namespace

HeldFolder::HeldFolder() noexcept = default;
HeldFolder::HeldFolder(std::shared_ptr<Hold const> newHold) noexcept : hold(std::move(newHold)) {}
HeldFolder::HeldFolder(HeldFolder const & other) = default;
HeldFolder::HeldFolder(HeldFolder && other) noexcept = default;
HeldFolder & HeldFolder::operator=(HeldFolder const & other) = default;
HeldFolder & HeldFolder::operator=(HeldFolder && other) noexcept = default;
HeldFolder::~HeldFolder() = default;

HeldFolder::HeldFolder(WString const & path, Links links)
{
    HANDLE const handle = OpenFolder(path, links);
    if (handle != INVALID_HANDLE_VALUE)
    {
        hold = std::make_shared<Hold const>(handle, FinalPath(handle, path), nullptr);
    }
}

HeldFolder HeldFolder::Enter(WString const & name) const
{
    WString const path = hold->path + (hold->path.back() == L'\\' ? L"" : L"\\") + name;
    HANDLE const handle = OpenFolder(path, Links::Refused);
    return handle == INVALID_HANDLE_VALUE ? HeldFolder() : HeldFolder(std::make_shared<Hold const>(handle, path, hold));
}

WString HeldFolder::Path() const
{
    return hold->path;
}

FolderIdentity HeldFolder::Identity() const noexcept
{
    BY_HANDLE_FILE_INFORMATION information = {};
    if (hold == nullptr || !::GetFileInformationByHandle(hold->handle, &information))
    {
        return {};
    }
    return {
        information.dwVolumeSerialNumber, std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow};
}

} // namespace kv::platform
