#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

std::vector<WString> Split(WCHAR const * line)
{
    int count = -1;
    LPWSTR * const found = CommandLineToArgvW(line, &count);
    if (found == nullptr)
    {
        ADD_FAILURE() << "no arguments";
        return {};
    }
    EXPECT_EQ(nullptr, found[count]);
    std::vector<WString> const arguments(found, found + count);
    LocalFree(found);
    return arguments;
}

TEST(CommandLines, AreSplitAtBlanksAndKeptTogetherByQuotes)
{
    struct Case
    {
        WCHAR const * line;
        std::vector<WString> arguments;
    };
    Case const cases[] = {
        {TEXT("p"), {TEXT("p")}},
        {TEXT("p a b"), {TEXT("p"), TEXT("a"), TEXT("b")}},
        {TEXT("p  a\t b "), {TEXT("p"), TEXT("a"), TEXT("b")}},
        {TEXT("p a\nb"), {TEXT("p"), TEXT("a\nb")}},
        {TEXT("p \"a b\"c"), {TEXT("p"), TEXT("a bc")}},
        {TEXT("p a\"b c\"d"), {TEXT("p"), TEXT("ab cd")}},
        {TEXT("p \"\" a"), {TEXT("p"), TEXT(""), TEXT("a")}},
        {TEXT("p \""), {TEXT("p"), TEXT("")}},
        {TEXT("p \"a b"), {TEXT("p"), TEXT("a b")}},
        // The third of several quotes stands for itself.
        {TEXT("p \"a\"\"b\" c"), {TEXT("p"), TEXT("a\"b c")}},
        {TEXT("p \"a\"\"\"b c\" d"), {TEXT("p"), TEXT("a\"b c"), TEXT("d")}},
        {TEXT("p \"\"\"\"\"\" a"), {TEXT("p"), TEXT("\"\""), TEXT("a")}},
        {TEXT("p \"a b\"\" c\" d"), {TEXT("p"), TEXT("a b\""), TEXT("c d")}},
        // Backslashes count in front of a quote alone.
        {TEXT("p \\"), {TEXT("p"), TEXT("\\")}},
        {TEXT("p a\\b\\\\c"), {TEXT("p"), TEXT("a\\b\\\\c")}},
        {TEXT("p a\\\"b"), {TEXT("p"), TEXT("a\"b")}},
        {TEXT("p a\\\\\"b c\" d"), {TEXT("p"), TEXT("a\\b c"), TEXT("d")}},
        {TEXT("p a\\\\\\\"b c"), {TEXT("p"), TEXT("a\\\"b"), TEXT("c")}},
        {TEXT("p \"a b\\\\\" c"), {TEXT("p"), TEXT("a b\\"), TEXT("c")}},
        {TEXT("p \"a b\\\" c"), {TEXT("p"), TEXT("a b\" c")}},
        // The program's name has no escapes, and begins with the line.
        {TEXT(" p a"), {TEXT(""), TEXT("p"), TEXT("a")}},
        {TEXT("\t"), {TEXT("")}},
        {TEXT("\"a b\" c"), {TEXT("a b"), TEXT("c")}},
        {TEXT("\"a b\"c d"), {TEXT("a b"), TEXT("c"), TEXT("d")}},
        {TEXT("a\"b c\" d"), {TEXT("a\"b"), TEXT("c d")}},
        {TEXT("\"a\\\" b"), {TEXT("a\\"), TEXT("b")}},
        {TEXT("\""), {TEXT("")}},
        {TEXT("\"\" a"), {TEXT(""), TEXT("a")}},
    };
    for (Case const & one : cases)
    {
        EXPECT_EQ(Split(one.line), one.arguments) << testing::PrintToString(WString(one.line));
    }
}

TEST(CommandLines, NeedAPlaceForTheCount)
{
    EXPECT_EQ(CommandLineToArgvW(TEXT("a"), nullptr), nullptr);
}

TEST(CommandLines, ThatAreEmptyAreTheProgram)
{
    std::vector<WString> const arguments = Split(TEXT(""));
    ASSERT_EQ(arguments.size(), 1u);
    WCHAR path[1024] = {};
    GetModuleFileNameW(nullptr, path, 1024);
    EXPECT_EQ(arguments[0], path) << "whole, however the program was called";
}

TEST(CommandLines, OfThisProcessBeginWithItsProgram)
{
    WCHAR const * const line = GetCommandLineW();
    EXPECT_EQ(GetCommandLineW(), line);
    EXPECT_NE(Split(line)[0].find(TEXT("test_platform")), WString::npos);
}

} // namespace
