// The log at the end of its process, while six threads write to it.

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>
#include <support/ChildProgram.h>
#include <support/ScratchFolder.h>

#include "BusyLines.h"
#include "LogRig.h"

#ifndef _WIN32 // for signals of that system
#    include <csignal>
#endif

namespace
{

constexpr int runs = 4;
constexpr std::size_t mostOnTheirWay = std::size_t{256} << 10;

/// What is left of a process that has logged busily.
class Remains
{
public:
    explicit Remains(std::string const & ending)
    {
        std::string const log = (scratch / "log.txt").string();
        std::string const counts = (scratch / "counts").string();
        code = RunChildProgram("frame_child", {"log-busily", ending, log, counts});
        std::ifstream(scratch / "counts", std::ios::binary).read(reinterpret_cast<char *>(&taken), sizeof taken);
        bytes = scratch.Read("log.txt");
    }

    /// Takes off a last line that is not whole.
    void CutTornLine()
    {
        std::size_t const end = bytes.rfind("\r\n");
        bytes.resize(end != bytes.npos ? end + 2 : 0);
    }
    /// Each thread's lines must be there in order and whole, from the first one on. How many there are of each.
    std::vector<unsigned> CountLines() const
    {
        std::vector<unsigned> counts(busyThreads);
        std::size_t wrong = 0;
        for (std::string const & text : TextsOf(bytes))
        {
            int const thread = text.starts_with("thread ") ? text[7] - '0' : -1;
            bool const isRight = thread >= 0 && thread < busyThreads &&
                text == String::FromUtf8(BusyLine(thread, counts[std::size_t(thread)])).SystemMultibyte();
            isRight ? ++counts[std::size_t(thread)] : ++wrong;
        }
        EXPECT_EQ(wrong, 0u);
        return counts;
    }

    ScratchFolder scratch;
    int code = 0;
    BusyCounts taken = {};
    std::string bytes;
};

class BusyLogs : public testing::TestWithParam<char const *>
{
};

std::string NameOf(testing::TestParamInfo<char const *> const & info)
{
    std::string name;
    for (char const * at = info.param; *at != 0; ++at)
    {
        name += std::isalnum(static_cast<unsigned char>(*at)) ? *at : '_';
    }
    return name;
}

using BusyLogsAtExit = BusyLogs;

TEST_P(BusyLogsAtExit, HaveAllLinesThatWereTakenBefore)
{
    for (int run = 0; run < runs; ++run)
    {
        Remains const remains(GetParam());
        ASSERT_EQ(remains.code, 7);
        std::vector<unsigned> const counts = remains.CountLines();
        for (std::size_t thread = 0; thread < busyThreads; ++thread)
        {
            EXPECT_GE(remains.taken.certain[thread], fewestBusyLines);
            EXPECT_GE(counts[thread], remains.taken.certain[thread]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, BusyLogsAtExit, testing::Values("exit", "thread: exit"), NameOf);

using BusyLogsWithNotice = BusyLogs;

TEST_P(BusyLogsWithNotice, LoseNoLineAndTearNone)
{
    for (int run = 0; run < runs; ++run)
    {
        Remains const remains(GetParam());
        ASSERT_NE(remains.code, 2);
#ifndef _WIN32
        std::string const ending = GetParam();
        int const signal = ending.ends_with("TERM") ? SIGTERM
            : ending.ends_with("INT")               ? SIGINT
            : ending.ends_with("HUP")               ? SIGHUP
            : ending.ends_with("QUIT")              ? SIGQUIT
            : ending.ends_with("fault")             ? SIGSEGV
                                                    : SIGABRT;
        ASSERT_EQ(remains.code, ending == "quick_exit" ? 7 : -signal);
#endif
        std::vector<unsigned> const counts = remains.CountLines();
        for (std::size_t thread = 0; thread < busyThreads; ++thread)
        {
            EXPECT_GE(remains.taken.taken[thread], fewestBusyLines);
            EXPECT_GE(counts[thread], remains.taken.taken[thread]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, BusyLogsWithNotice, testing::Values("abort"), NameOf);

#ifndef _WIN32 // under Wine the last line was torn in one of four runs; the reason is not known
INSTANTIATE_TEST_SUITE_P(Faults, BusyLogsWithNotice, testing::Values("fault", "thread: fault"), NameOf);

INSTANTIATE_TEST_SUITE_P(
    Signals, BusyLogsWithNotice,
    testing::Values(
        "SIGTERM", "thread: SIGTERM", "sent SIGTERM", "thread: sent SIGTERM", "to thread: SIGTERM", "sent SIGINT",
        "to thread: SIGINT", "sent SIGHUP", "to thread: SIGHUP", "sent SIGQUIT", "quick_exit"),
    NameOf);
#endif

using BusyLogsWithoutNotice = BusyLogs;

TEST_P(BusyLogsWithoutNotice, LoseABoundedNumberOfLines)
{
    for (int run = 0; run < runs; ++run)
    {
        Remains remains(GetParam());
        ASSERT_EQ(remains.code, 7);
        remains.CutTornLine();
        std::vector<unsigned> const counts = remains.CountLines();
        std::size_t lost = 0;
        for (int thread = 0; thread < busyThreads; ++thread)
        {
            for (unsigned line = counts[std::size_t(thread)]; line < remains.taken.taken[thread]; ++line)
            {
                lost += stampLength + BusyLine(thread, line).size() + 2;
            }
        }
        EXPECT_LE(lost, mostOnTheirWay + 4096) << "with the line that is torn";
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, BusyLogsWithoutNotice, testing::Values("_exit", "thread: _exit"), NameOf);

#ifndef _WIN32
TEST(LogsOfProcessesWithSignals, LeaveThemToTheProgram)
{
    ScratchFolder const scratch;
    EXPECT_EQ(RunChildProgram("frame_child", {"log-own-signals", (scratch / "log.txt").string()}), 0);
    EXPECT_EQ(TextsOf(scratch.Read("log.txt")), std::vector<std::string>({"first", "second", "third"}));
}
#endif

} // namespace
