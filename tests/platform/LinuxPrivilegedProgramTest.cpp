#ifndef _WIN32 // Where a program has its caller's rights and no others.

#    include <cstdlib>
#    include <cstring>
#    include <filesystem>
#    include <optional>
#    include <set>
#    include <string>

#    include <kvcore/platform/NativePaths.h>
#    include <kvcore/platform/win32.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

/// Whether the program is to take itself for one with more rights than its caller, but for its home: that would be the
/// user's real one.
bool isPrivileged = false;

/// What has been asked for since.
std::set<std::string> asked;

} // namespace

// In the place of the C library's: what it answers depends on how the program was started.
extern "C" __attribute__((visibility("default"))) char * secure_getenv(char const * name) noexcept
{
    if (isPrivileged)
    {
        asked.insert(name);
    }
    return isPrivileged && std::strcmp(name, "HOME") != 0 ? nullptr : std::getenv(name);
}

namespace
{

/// An environment variable with another value for a while.
class OtherSetting
{
public:
    OtherSetting(char const * setting, std::string const & value) : name(setting)
    {
        if (char const * const present = std::getenv(name))
        {
            before = present;
        }
        setenv(name, value.c_str(), 1);
    }
    ~OtherSetting()
    {
        before ? setenv(name, before->c_str(), 1) : unsetenv(name);
    }
    OtherSetting(OtherSetting const &) = delete;
    OtherSetting & operator=(OtherSetting const &) = delete;

private:
    char const * const name;
    std::optional<std::string> before;
};

std::string TempPath()
{
    WCHAR path[1024] = {};
    GetTempPathW(1024, path);
    return kv::platform::PathToNative(path);
}

TEST(PrivilegedPrograms, DoNotGoWhereTheirCallersEnvironmentPoints)
{
    ScratchFolder const folder;
    std::string const callers = (folder / "callers").string();
    std::string const home = (folder / "home").string();
    OtherSetting const data("XDG_DATA_HOME", callers);
    OtherSetting const temporary("TMPDIR", callers);
    OtherSetting const homeSetting("HOME", home);
    EXPECT_EQ(kv::platform::PathToNative(u"C:\\x"), callers + "/kvcore/drive_c/x");
    EXPECT_EQ(TempPath().rfind(callers, 0), 0u);
    std::filesystem::remove_all(callers);

    isPrivileged = true;
    std::string const place = kv::platform::PathToNative(u"C:\\x");
    std::string const temp = TempPath();
    isPrivileged = false;
    EXPECT_EQ(place, home + "/.local/share/kvcore/drive_c/x");
    EXPECT_NE(temp.rfind(callers, 0), 0u);
    EXPECT_FALSE(std::filesystem::exists(callers)) << "nothing is made there";
    for (char const * const name : {"XDG_DATA_HOME", "TMPDIR", "HOME"})
    {
        EXPECT_TRUE(asked.contains(name)) << name;
    }
}

} // namespace

#endif
