#include <kvcore/platform/PrivateFiles.h>

#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/paths/NativePath.h>

namespace kv::platform
{

namespace
{

/// What the process's mask takes from new files, read without changing it: umask() would open a gap for other threads.
/// Everything but the owner's rights where the kernel does not tell.
mode_t FileMask() noexcept
{
    constexpr mode_t unknown = 077;
    constexpr char label[] = "\nUmask:";
    char text[1024];
    int const descriptor = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return unknown;
    }
    ssize_t const length = read(descriptor, text, sizeof text - 1);
    close(descriptor);
    text[length < 0 ? 0 : length] = '\0';
    char const * const line = std::strstr(text, label);
    return line == nullptr ? unknown : static_cast<mode_t>(std::strtoul(line + sizeof label - 1, nullptr, 8));
}

} // namespace

bool GiveUsualRights(WString const & path) noexcept
{
    NativePath native;
    if (!native.Translate(path.c_str(), Look::Existing))
    {
        return false;
    }
    return chmod(native.CStr(), 0666 & ~FileMask()) == 0 || FailErrno();
}

} // namespace kv::platform
