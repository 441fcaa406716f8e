#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/FileOperations.h>
#include <support/ScratchPaths.h>

// Every operation on everything that can be in its way. A new operation gets a row, a new obstacle a column.

namespace
{

using kv::test::fileOperations;
using kv::test::FilePlace;
using kv::test::NamedOperation;

struct Obstacle
{
    char const * name;
    /// Makes it in an empty folder, and names it.
    WString (*make)(ScratchPaths const & folder);
};

Obstacle const obstacles[] = {
    {"missing", [](ScratchPaths const & folder) { return folder(TEXT("none")); }},
    {"missing folder", [](ScratchPaths const & folder) { return folder(TEXT("none\\x")); }},
    {"directory", [](ScratchPaths const & folder) { return folder.MakeDirectory("directory"); }},
    {"full directory",
     [](ScratchPaths const & folder)
     {
         folder.Make("directory/x");
         return folder(TEXT("directory"));
     }},
    {"file as folder", [](ScratchPaths const & folder) { return folder.Make("file as folder") + TEXT("\\x"); }},
    {"name of 255", [](ScratchPaths const & folder) { return folder(WString(255, TEXT('n'))); }},
    {"name of 256", [](ScratchPaths const & folder) { return folder(WString(256, TEXT('n'))); }},
    {"endless path",
     [](ScratchPaths const & folder)
     {
         WString path = folder.Root();
         while (path.size() < 40000)
         {
             path += TEXT("\\directory");
         }
         return path;
     }},
};

struct Row
{
    char const * operation;
    DWORD errors[std::size(obstacles)];
};

Row const rows[] = {
    {"read", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"write", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"truncate", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"create new", {0, 3, 80, 80, 3, 0, 206, 206}},
    {"create always", {0, 3, 5, 5, 3, 0, 206, 206}},
    {"attributes", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"set attributes", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"delete", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"make directory", {0, 3, 183, 183, 3, 0, 206, 206}},
    {"remove directory", {2, 3, 0, 145, 3, 2, 206, 206}},
    {"move from", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"move to", {0, 3, 183, 183, 3, 0, 206, 206}},
    {"move over", {0, 3, 5, 5, 3, 0, 206, 206}},
    {"copy from", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"copy to", {0, 3, 5, 5, 3, 0, 206, 206}},
    {"replace", {2, 3, 5, 5, 3, 2, 206, 206}},
    {"find", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"find in", {3, 3, 0, 0, 3, 3, 206, 206}},
    {"short name", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"long name", {2, 3, 0, 0, 3, 2, 206, 206}},
    {"free space", {2, 3, 0, 0, 3, 2, 206, 206}},
};

#ifdef _WIN32 // What the system itself tells otherwise than its published contract.
struct Difference
{
    std::string operation;
    std::string obstacle;
    DWORD error;
};

Difference const differences[] = {
    {"replace", "directory", 0},
    {"replace", "full directory", 0},
    {"find", "file as folder", ERROR_INVALID_NAME},
    {"short name", "missing folder", ERROR_FILE_NOT_FOUND},
    {"short name", "file as folder", ERROR_FILE_NOT_FOUND},
    {"long name", "missing folder", ERROR_FILE_NOT_FOUND},
    {"long name", "file as folder", ERROR_FILE_NOT_FOUND},
};

/// It looks for a name that is too long, and says that there is none.
bool IsAsExpected(NamedOperation const & operation, Obstacle const & obstacle, DWORD expected, DWORD error)
{
    for (Difference const & difference : differences)
    {
        if (difference.operation == operation.name && difference.obstacle == obstacle.name)
        {
            expected = difference.error;
        }
    }
    return error == expected ||
        (expected == ERROR_FILENAME_EXCED_RANGE &&
         (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_NAME));
}
#else
bool IsAsExpected(NamedOperation const &, Obstacle const &, DWORD expected, DWORD error)
{
    return error == expected;
}
#endif

} // namespace

TEST(FileObstacles, AreToldByEveryOperation)
{
    ASSERT_EQ(std::size(fileOperations), std::size(rows));
    for (std::size_t row = 0; row < std::size(rows); ++row)
    {
        NamedOperation const & operation = fileOperations[row];
        ASSERT_STREQ(operation.name, rows[row].operation);
        for (std::size_t column = 0; column < std::size(obstacles); ++column)
        {
            ScratchPaths const folder;
            FilePlace const place = {
                obstacles[column].make(folder), folder.Make("source", "x"), folder(TEXT("unused"))};
            DWORD const error = operation.run(place);
            EXPECT_TRUE(IsAsExpected(operation, obstacles[column], rows[row].errors[column], error))
                << operation.name << ", " << obstacles[column].name << ": " << error;
        }
    }
}
