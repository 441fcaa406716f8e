#include "Drives.h"

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/system/Settings.h>

namespace kv::platform
{

namespace
{

/// Makes a directory and those above it, for this user alone.
bool MakeAll(std::string const & path)
{
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    {
        mkdir(path.substr(0, slash).c_str(), 0700);
    }
    mkdir(path.c_str(), 0700);
    return access(path.c_str(), X_OK) == 0;
}

/// A folder under /var/tmp can have been put there by anybody: it counts only if it is this user's and closed to
/// others.
bool IsOwn(std::string const & path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
        (status.st_mode & 077) == 0;
}

std::string HomeDirectory()
{
    if (char const * const home = PlaceSetting("HOME"); home != nullptr && home[0] == '/')
    {
        return home;
    }
    struct passwd entry;
    struct passwd * found = nullptr;
    char buffer[4096];
    bool const known = getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr;
    return known && found->pw_dir[0] == '/' ? found->pw_dir : "";
}

/// The first place of the data directory that can be made; empty if none can.
std::string MakeDataDirectory(std::string const & configured)
{
    std::string const home = configured.empty() ? HomeDirectory() : "";
    std::string const wanted = configured.empty() ? home + "/.local/share/kvcore" : configured + "/kvcore";
    if ((!configured.empty() || !home.empty()) && MakeAll(wanted))
    {
        return wanted;
    }
    std::string const fallback = "/var/tmp/kvcore-" + std::to_string(geteuid());
    return MakeAll(fallback) && IsOwn(fallback) ? fallback : "";
}

void MakeFolders(std::string const & data)
{
    std::string const user = data + "/drive_c/Users/" + UserName();
    for (char const * const folder :
         {"/AppData/Roaming", "/AppData/Local/Temp", "/Documents", "/Desktop", "/Pictures", "/Music", "/Videos"})
    {
        MakeAll(user + folder);
    }
    MakeAll(data + "/drive_c/Users/Public");
    MakeAll(data + "/drive_c/ProgramData");
    MakeAll(data + "/drive_c/Program Files/Common Files");
    MakeAll(data + "/drive_c/Windows/Fonts");
    MakeAll(data + "/drive_c/Windows/System32");
    MakeAll(data + "/dosdevices");
}

/// What was made last, and for which setting: tests and sessions may change the environment between calls.
struct KnownDirectory
{
    std::mutex mutex;
    bool made = false;
    std::string configured;
    std::string directory;
};

KnownDirectory & Known()
{
    static KnownDirectory & known = *new KnownDirectory;
    return known;
}

} // namespace

char const * UserName() noexcept
{
    static char name[256];
    static std::once_flag once;
    std::call_once(
        once,
        []
        {
            struct passwd entry;
            struct passwd * found = nullptr;
            char buffer[4096];
            bool const known = getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr;
            if (known && std::strchr(found->pw_name, '/') == nullptr && found->pw_name[0] != '.')
            {
                std::snprintf(name, sizeof name, "%s", found->pw_name);
            }
            else
            {
                std::snprintf(name, sizeof name, "user%lu", static_cast<unsigned long>(geteuid()));
            }
        });
    return name;
}

bool DataDirectory(char (&directory)[PATH_MAX], std::size_t & length) noexcept
try
{
    char const * const setting = PlaceSetting("XDG_DATA_HOME");
    char const * const configured = setting != nullptr && setting[0] == '/' ? setting : "";
    KnownDirectory & known = Known();
    std::lock_guard const guard(known.mutex);
    if (!known.made || known.configured != configured || access(known.directory.c_str(), F_OK) != 0)
    {
        known.made = false;
        known.configured = configured;
        known.directory = MakeDataDirectory(known.configured);
        if (known.directory.empty())
        {
            return FailWith(ERROR_PATH_NOT_FOUND);
        }
        MakeFolders(known.directory);
        known.made = true;
    }
    length = known.directory.size();
    if (length >= sizeof directory)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    }
    std::memcpy(directory, known.directory.c_str(), length + 1);
    return true;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

bool DriveRoot(WCHAR letter, char (&root)[PATH_MAX], std::size_t & length) noexcept
{
    unsigned const lower = letter | 0x20u;
    length = 0;
    root[0] = '\0';
    if (letter >= 0x80 || lower < 'a' || lower > 'z')
    {
        return FailWith(ERROR_PATH_NOT_FOUND);
    }
    if (lower == 'z')
    {
        return true;
    }
    if (!DataDirectory(root, length))
    {
        return false;
    }
    char tail[] = "/dosdevices/x:";
    tail[sizeof tail - 3] = static_cast<char>(lower);
    char const * const added = lower == 'c' ? "/drive_c" : tail;
    if (length + std::strlen(added) >= sizeof root)
    {
        return FailWith(ERROR_FILENAME_EXCED_RANGE);
    }
    std::strcpy(root + length, added);
    length += std::strlen(added);
    return true;
}

bool DriveExists(WCHAR letter) noexcept
{
    char root[PATH_MAX];
    std::size_t length = 0;
    struct stat status;
    return DriveRoot(letter, root, length) && stat(length == 0 ? "/" : root, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace kv::platform
