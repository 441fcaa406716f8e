#include <kvcore/frame/CommandLine.h>

#include <fstream>

#include <gtest/gtest.h>

#include <support/ChildProgram.h>
#include <support/ScratchFolder.h>

namespace
{

TEST(CommandLines, StartWithoutAnything)
{
    CommandLine const commandLine;
    EXPECT_TRUE(commandLine.GetDocPath().empty());
    EXPECT_FALSE(commandLine.IsRegistering());
    EXPECT_FALSE(commandLine.IsUnregistering());
}

TEST(CommandLines, KnowTheirSwitchesInAnyCase)
{
    CommandLine commandLine;
    commandLine.Parse(TEXT("RegServer"), true, false);
    EXPECT_TRUE(commandLine.IsRegistering());
    EXPECT_FALSE(commandLine.IsUnregistering());
    commandLine.Parse(TEXT("UNREGSERVER"), true, true);
    EXPECT_TRUE(commandLine.IsRegistering()) << "neither clears the other";
    EXPECT_TRUE(commandLine.IsUnregistering());
}

TEST(CommandLines, IgnoreOtherOptions)
{
    CommandLine commandLine;
    for (WCHAR const * option : {TEXT("foo"), TEXT(""), TEXT("-regserver"), TEXT("regserver2"), TEXT("regserve")})
    {
        commandLine.Parse(option, true, false);
    }
    EXPECT_FALSE(commandLine.IsRegistering());
    EXPECT_TRUE(commandLine.GetDocPath().empty());
}

TEST(CommandLines, TakeTheFirstDocumentThatIsNotEmpty)
{
    CommandLine commandLine;
    commandLine.Parse(TEXT(""), false, false);
    commandLine.Parse(TEXT("a.txt"), false, false);
    commandLine.Parse(TEXT("b.txt"), false, true);
    EXPECT_EQ(commandLine.GetDocPath(), TEXT("a.txt"));
    commandLine.EndParse();
    EXPECT_EQ(commandLine.GetDocPath(), TEXT("a.txt"));
    commandLine.BeginParse();
    EXPECT_TRUE(commandLine.GetDocPath().empty());
}

TEST(CommandLines, CopyWhatTheyHold)
{
    CommandLine first;
    first.Parse(TEXT("a.txt"), false, false);
    first.Parse(TEXT("regserver"), true, false);
    CommandLine second(first);
    EXPECT_EQ(second.GetDocPath(), TEXT("a.txt"));
    EXPECT_TRUE(second.IsRegistering());
    CommandLine third;
    third.Parse(TEXT("unregserver"), true, false);
    third = first;
    EXPECT_EQ(third.GetDocPath(), TEXT("a.txt"));
    EXPECT_TRUE(third.IsRegistering());
    EXPECT_FALSE(third.IsUnregistering());
}

TEST(CommandLines, TakeBothSwitchesInEitherOrder)
{
    CommandLine commandLine;
    commandLine.Parse(TEXT("unregserver"), true, false);
    EXPECT_FALSE(commandLine.IsRegistering());
    commandLine.Parse(TEXT("regserver"), true, true);
    EXPECT_TRUE(commandLine.IsRegistering());
    EXPECT_TRUE(commandLine.IsUnregistering());
}

TEST(CommandLines, ForgetEverythingWhenTheyBegin)
{
    CommandLine commandLine;
    commandLine.Parse(TEXT("regserver"), true, false);
    commandLine.Parse(TEXT("unregserver"), true, false);
    commandLine.Parse(TEXT("a.txt"), false, true);
    commandLine.BeginParse();
    EXPECT_FALSE(commandLine.IsRegistering());
    EXPECT_FALSE(commandLine.IsUnregistering());
    EXPECT_TRUE(commandLine.GetDocPath().empty());
}

/// What an application of a process of its own, started with these arguments, tells of them and of its course.
std::string ToldByApplication(std::vector<std::string> arguments)
{
    ScratchFolder const scratch;
    arguments.insert(arguments.begin(), {"application", "told=" + (scratch / "told.txt").string()});
    EXPECT_EQ(RunChildProgram("frame_child", arguments), 7);
    return scratch.Read("told.txt");
}

TEST(ConsoleApplications, RunTheirCourse)
{
    EXPECT_EQ(ToldByApplication({"run"}), "init begin[run]end main free ");
}

TEST(ConsoleApplications, LeaveOutMainIfTheyAreNotReady)
{
    EXPECT_EQ(ToldByApplication({"stop"}), "init begin[stop]end free ");
}

TEST(ConsoleApplications, HandOverTheirArguments)
{
    EXPECT_EQ(
        ToldByApplication({"a b", "-foo", "/REGSERVER", "--x", "", "c\"d\\", "-unregserver", "last"}),
        "init begin[a b](foo)(REGSERVER)(-x)[][c\"d\\](unregserver)[last!]end main free ");
}

TEST(ConsoleApplications, ParseAfreshEachTime)
{
    EXPECT_EQ(ToldByApplication({"twice"}), "init begin[twice]end begin[twice]end main free ");
}

TEST(ConsoleApplications, UnderstandTheirArgumentsAfreshEachTime)
{
    struct
    {
        std::vector<std::string> arguments;
        std::string understood;
    } const cases[] = {
        {{}, "[]"},
        {{"-regserver"}, "[] register"},
        {{"/REGSERVER"}, "[] register"},
        {{"/UnRegServer"}, "[] unregister"},
        {{"-unregserver", "-regserver"}, "[] register unregister"},
        {{"a.txt", "b.txt"}, "[a.txt]"},
        {{"-foo", "a.txt"}, "[a.txt]"},
        {{"", "a.txt", "/regserver"}, "[a.txt] register"},
        {{"--regserver", "regserver"}, "[regserver]"},
    };
    for (auto const & one : cases)
    {
        ScratchFolder const scratch;
        std::vector<std::string> arguments = {"parse", "told=" + (scratch / "told.txt").string()};
        arguments.insert(arguments.end(), one.arguments.begin(), one.arguments.end());
        EXPECT_EQ(RunChildProgram("frame_child", arguments), 0);
        EXPECT_EQ(scratch.Read("told.txt"), one.understood + ";" + one.understood + ";");
    }
}

} // namespace
