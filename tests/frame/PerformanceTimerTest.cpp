#include <kvcore/frame/PerformanceTimer.h>

#include <gtest/gtest.h>

#include <support/DebugOutput.h>

namespace
{

TEST(PerformanceTimers, AreTen)
{
    EXPECT_EQ(KVPerformanceTimer::StartGlobalTimer(10, "x"), nullptr);
    EXPECT_EQ(KVPerformanceTimer::GetGlobalTimer(10), nullptr);
    KVPerformanceTimer::StopGlobalTimer(10);
    EXPECT_NE(KVPerformanceTimer::StartGlobalTimer(9, "x"), nullptr);
    KVPerformanceTimer::StopGlobalTimer(9);
}

TEST(PerformanceTimers, KeepTheirFirstStart)
{
    KVPerformanceTimer * const timer = KVPerformanceTimer::StartGlobalTimer(3, "first");
    ASSERT_NE(timer, nullptr);
    EXPECT_STREQ(timer->name, "first");
    EXPECT_STREQ(timer->label, "END");
    LONGLONG const start = timer->start;
    EXPECT_EQ(KVPerformanceTimer::StartGlobalTimer(3, "second"), timer);
    EXPECT_STREQ(timer->name, "first");
    EXPECT_EQ(timer->start, start);
    EXPECT_EQ(KVPerformanceTimer::GetGlobalTimer(3), timer);
    KVPerformanceTimer::StopGlobalTimer(3);
    EXPECT_EQ(KVPerformanceTimer::GetGlobalTimer(3), nullptr);
}

TEST(PerformanceTimers, ReportToTheDebugger)
{
    DebugOutput const output;
    KVPerformanceTimer::StopGlobalTimer(4);
    EXPECT_TRUE(output.Texts().empty()) << "nothing runs";
    KVPerformanceTimer::StartGlobalTimer(4, "decode");
    KVPerformanceTimer::StopGlobalTimer(4);
    ASSERT_EQ(output.Texts().size(), 1u);
    std::string const text = output.Texts().front();
    EXPECT_EQ(text.substr(0, 9), "PERFTIME ");
    EXPECT_EQ(text[14], '.') << "three decimals in nine places";
    EXPECT_EQ(text.substr(18), " ms: decode END\n");
}

TEST(PerformanceTimers, CutNamesThatAreTooLong)
{
    DebugOutput const output;
    std::string const name(2000, 'n');
    KVPerformanceTimer::StartGlobalTimer(5, name.c_str());
    KVPerformanceTimer::StopGlobalTimer(5);
    ASSERT_EQ(output.Texts().size(), 1u);
    EXPECT_EQ(output.Texts().front().size(), 502u);
}

} // namespace
