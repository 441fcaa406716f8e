#include <kvcore/library/StartRecord.h>

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include <support/ChildProgram.h>
#include <support/ScratchFolder.h>

namespace
{

using Names = std::vector<std::string>;

/// In the order of the one source that defines them.
Names const order = {"own module",      "counter frequency",   "log",
                     "module list",     "global display name", "object service locks",
                     "object services", "object classes",      "attachment"};

TEST(LibraryStart, MakesItsObjectsInOneOrder)
{
    std::vector<char const *> const started = kv::detail::StartedObjects();
    EXPECT_EQ(Names(started.begin(), started.end()), order);
}

TEST(LibraryStart, IsUndoneBackwardsAndTheLogAnswersAllTheTime)
{
    ScratchFolder const scratch;
    EXPECT_EQ(RunChildProgram("frame_child", {"record-stop", (scratch / "stop.txt").string()}), 0);
    std::istringstream lines(scratch.Read("stop.txt"));
    Names stopped;
    for (std::string line; std::getline(lines, line);)
    {
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        stopped.push_back(line);
    }
    EXPECT_EQ(stopped, Names(order.rbegin(), order.rend()));
}

} // namespace
