#ifndef _WIN32 // Links and rights of this system.

#    include <filesystem>
#    include <functional>
#    include <iterator>

#    include <sys/stat.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include <kvcore/platform/win32.h>
#    include <support/FileOperations.h>
#    include <support/ScratchPaths.h>

namespace
{

using kv::test::fileOperations;
using kv::test::FilePlace;
using kv::test::NamedOperation;

constexpr uid_t nobody = 65534;

WString Link(ScratchPaths const & folder, char const * target)
{
    std::filesystem::create_symlink(target, folder / "link");
    return folder(TEXT("link"));
}

/// Only its owner may search or change the folder.
WString Closed(ScratchPaths const & folder)
{
    WString const file = folder.Make("closed/file", "x");
    chmod((folder / "closed").c_str(), getuid() == 0 ? 0700 : 0);
    return file;
}

/// Everybody may read the file, and nobody may change it or its folder.
WString Barred(ScratchPaths const & folder)
{
    WString const file = folder.Make("barred/file", "x");
    chmod((folder / "barred/file").c_str(), 0444);
    chmod((folder / "barred").c_str(), 0555);
    return file;
}

struct Obstacle
{
    char const * name;
    WString (*make)(ScratchPaths const & folder);
};

Obstacle const obstacles[] = {
    {"dangling link", [](ScratchPaths const & folder) { return Link(folder, "none"); }},
    {"looping link", [](ScratchPaths const & folder) { return Link(folder, "link"); }},
    {"closed folder", Closed},
    {"barred folder", Barred},
};

struct Row
{
    char const * operation;
    DWORD errors[std::size(obstacles)];
};

Row const rows[] = {
    {"read", {2, 1921, 5, 0}},
    {"write", {2, 1921, 5, 5}},
    {"truncate", {2, 1921, 5, 5}},
    {"create new", {80, 80, 5, 80}},
    {"create always", {0, 1921, 5, 5}},
    {"attributes", {0, 0, 5, 0}},
    {"set attributes", {2, 1921, 5, getuid() == 0 ? 5u : 0u}}, // its owner may
    {"delete", {0, 0, 5, 5}},
    {"make directory", {183, 183, 5, 183}},
    {"remove directory", {267, 267, 5, 267}},
    {"move from", {0, 0, 5, 5}},
    {"move to", {183, 183, 5, 183}},
    {"move over", {0, 0, 5, 5}},
    {"copy from", {2, 1921, 5, 0}},
    {"copy to", {0, 1921, 5, 5}},
    {"replace", {2, 1921, 5, 5}},
    {"find", {0, 0, 5, 0}},
    {"find in", {3, 1921, 5, 267}},
    {"short name", {0, 0, 5, 0}},
    {"long name", {0, 0, 5, 0}},
    {"free space", {267, 267, 5, 267}},
};

constexpr DWORD noAnswer = 0xFFFFFFFF;

/// What `work` gives in a child process without the superuser's rights.
DWORD AsNobody(std::function<DWORD()> const & work)
{
    int ends[2] = {};
    if (pipe(ends) != 0)
    {
        return noAnswer;
    }
    pid_t const child = fork();
    if (child == 0)
    {
        DWORD const given = getuid() == 0 && setuid(nobody) != 0 ? noAnswer : work();
        _exit(write(ends[1], &given, sizeof given) == sizeof given ? 0 : 1);
    }
    close(ends[1]);
    DWORD given = noAnswer;
    if (read(ends[0], &given, sizeof given) != sizeof given)
    {
        given = noAnswer;
    }
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return given;
}

DWORD Meet(NamedOperation const & operation, Obstacle const & obstacle)
{
    ScratchPaths const folder;
    FilePlace const place = {obstacle.make(folder), folder.Make("source", "x"), folder(TEXT("unused"))};
    chmod(folder.Path().c_str(), 0777); // else the folder itself would be in the way
    chmod((folder / "source").c_str(), 0666);
    DWORD const error = AsNobody([&] { return operation.run(place); });
    for (char const * name : {"closed", "barred"}) // for whoever removes them
    {
        chmod((folder / name).c_str(), 0700);
    }
    return error;
}

} // namespace

TEST(LinuxFileObstacles, AreToldByEveryOperation)
{
    ASSERT_EQ(std::size(fileOperations), std::size(rows));
    for (std::size_t row = 0; row < std::size(rows); ++row)
    {
        ASSERT_STREQ(fileOperations[row].name, rows[row].operation);
        for (std::size_t column = 0; column < std::size(obstacles); ++column)
        {
            EXPECT_EQ(Meet(fileOperations[row], obstacles[column]), rows[row].errors[column])
                << rows[row].operation << ", " << obstacles[column].name;
        }
    }
}

#endif
