#ifndef _WIN32 // Where a program has its caller's rights and no others.

#    include <cstdlib>
#    include <cstring>
#    include <string>

#    include <kvcore/platform/NativePaths.h>
#    include <kvcore/platform/win32.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

/// Whether the program is to take itself for one with more rights than its caller.
bool isPrivileged = false;

} // namespace

// In the place of the C library's: what it answers depends on how the program was started.
extern "C" __attribute__((visibility("default"))) char * secure_getenv(char const * name) noexcept
{
    return isPrivileged ? nullptr : std::getenv(name);
}

namespace
{

/// Environment variables with other values for a while.
class OtherSettings
{
public:
    explicit OtherSettings(std::string const & value) : before(std::getenv("XDG_DATA_HOME"))
    {
        setenv("XDG_DATA_HOME", value.c_str(), 1);
        setenv("TMPDIR", value.c_str(), 1);
    }
    ~OtherSettings()
    {
        isPrivileged = false;
        setenv("XDG_DATA_HOME", before.c_str(), 1);
        unsetenv("TMPDIR");
    }
    OtherSettings(OtherSettings const &) = delete;
    OtherSettings & operator=(OtherSettings const &) = delete;

private:
    std::string const before;
};

std::string TempPath()
{
    WCHAR path[1024] = {};
    GetTempPathW(1024, path);
    return kv::platform::PathToNative(path);
}

TEST(PrivilegedPrograms, DoNotGoWhereTheirCallersEnvironmentPoints)
{
    ASSERT_NE(std::getenv("XDG_DATA_HOME"), nullptr);
    ScratchFolder const folder;
    std::string const place = folder.Path().string();
    OtherSettings const settings(place);
    EXPECT_EQ(kv::platform::PathToNative(u"C:\\x"), place + "/kvcore/drive_c/x");
    EXPECT_EQ(TempPath().rfind(place, 0), 0u);
    std::filesystem::remove_all(folder / "kvcore");

    isPrivileged = true;
    EXPECT_EQ(kv::platform::PathToNative(u"C:\\x").find(place), std::string::npos);
    EXPECT_EQ(TempPath().find(place), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder / "kvcore")) << "nothing is made there";
}

} // namespace

#endif
