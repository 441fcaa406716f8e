#include <kvcore/frame/ConsoleApplication.h>

#include <gtest/gtest.h>

#include <kvcore/frame/detail/CrashReporter.h>

namespace
{

using kv::detail::CrashReporter;

/// A program that overrides nothing.
class Plain : public ConsoleApplication
{
public:
    using ConsoleApplication::GetExitCode;
};

TEST(Applications, HaveTheCrashReporterAsLongAsTheyLive)
{
    ASSERT_EQ(CrashReporter::Current(), nullptr);
    {
        Plain application;
        ASSERT_NE(CrashReporter::Current(), nullptr);
        EXPECT_EQ(CrashReporter::Current()->errorReporting, nullptr);
    }
    EXPECT_EQ(CrashReporter::Current(), nullptr);
}

TEST(Applications, HoldTheExitCodeThatWasSetLast)
{
    Plain application;
    EXPECT_EQ(application.GetExitCode(), 0);
    EXPECT_EQ(application.SetExitCode(7), 7);
    EXPECT_EQ(application.GetExitCode(), 7);
    EXPECT_EQ(application.SetExitCode(-1), -1);
    EXPECT_EQ(application.GetExitCode(), -1);
}

TEST(Applications, AreReadyAndDoNothingOfThemselves)
{
    Plain application;
    EXPECT_TRUE(application.InitInstance());
    application.Main();
    EXPECT_EQ(application.GetExitCode(), 0);
}

TEST(Applications, AreModulesOfWhichThereIsOneHoweverTheyAreCombined)
{
    class Combined : public Plain, public virtual ModuleBase
    {
    };
    Combined application;
    ModuleBase & module = application; // would be ambiguous if there were two
    module.SetDisplayName(TEXT("The program"));
    EXPECT_EQ(static_cast<Plain &>(application).GetDisplayName(), TEXT("The program"));
}

} // namespace
