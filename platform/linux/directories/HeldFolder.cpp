#include <kvcore/platform/HeldFolder.h>

#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/linux/paths/NativePath.h>

namespace kv::platform
{

namespace
{

constexpr int openFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

} // namespace

struct HeldFolder::Hold
{
    Hold(int openDescriptor, WString const & openPath) : descriptor(openDescriptor), path(openPath) {}
    Hold(Hold const &) = delete;
    Hold & operator=(Hold const &) = delete;
    ~Hold()
    {
        close(descriptor);
    }

    int descriptor;
    WString path; ///< by which it was opened; serves where there is no /proc
};

HeldFolder::HeldFolder() noexcept = default;
HeldFolder::HeldFolder(std::shared_ptr<Hold const> newHold) noexcept : hold(std::move(newHold)) {}
HeldFolder::HeldFolder(HeldFolder const & other) = default;
HeldFolder::HeldFolder(HeldFolder && other) noexcept = default;
HeldFolder & HeldFolder::operator=(HeldFolder const & other) = default;
HeldFolder & HeldFolder::operator=(HeldFolder && other) noexcept = default;
HeldFolder::~HeldFolder() = default;

HeldFolder::HeldFolder(WString const & path, Links links)
{
    NativePath native;
    if (!native.Translate(path.c_str(), Look::Existing))
    {
        return;
    }
    int const descriptor = open(native.CStr(), openFlags | (links == Links::Refused ? O_NOFOLLOW : 0));
    if (descriptor < 0)
    {
        FailErrno();
        return;
    }
    hold = std::make_shared<Hold const>(descriptor, path);
}

HeldFolder HeldFolder::Enter(WString const & name) const
{
    char native[maxNativeName + 1];
    std::size_t length = 0;
    if (!EncodeName(name.data(), name.size(), native, maxNativeName, length))
    {
        return HeldFolder();
    }
    native[length] = '\0';
    int const descriptor = openat(hold->descriptor, native, openFlags | O_NOFOLLOW);
    if (descriptor < 0)
    {
        FailErrno();
        return HeldFolder();
    }
    return HeldFolder(std::make_shared<Hold const>(descriptor, hold->path + TEXT("\\") + name));
}

WString HeldFolder::Path() const
{
    std::string const native = "/proc/self/fd/" + std::to_string(hold->descriptor);
    if (access(native.c_str(), F_OK) != 0)
    {
        return hold->path;
    }
    WString path = TEXT("Z:");
    for (char const c : native)
    {
        path += c == '/' ? TEXT('\\') : static_cast<WCHAR>(c);
    }
    return path;
}

FolderIdentity HeldFolder::Identity() const noexcept
{
    struct stat status = {};
    if (hold == nullptr || fstat(hold->descriptor, &status) != 0)
    {
        return {};
    }
    return {status.st_dev, status.st_ino};
}

} // namespace kv::platform
