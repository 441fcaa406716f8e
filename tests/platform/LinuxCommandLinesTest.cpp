// The command line out of the arguments that the kernel hands over.
#ifndef _WIN32 // Windows hands over the line itself

#    include <algorithm>
#    include <cstdlib>
#    include <fstream>
#    include <iterator>
#    include <string>
#    include <vector>

#    include <gtest/gtest.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <kvcore/platform/win32.h>

namespace
{

constexpr char childMark[] = "KVCORE_TEST_ODD_ARGUMENTS";
constexpr char const * oddArguments[] = {"a b", "", "c\"d", "e\\", "f g\\", "\\\"", "\t", "--x=\xC3\xA4"};

/// What the kernel has: each argument up to its NUL.
std::size_t CountOfKernel()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::string const bytes{std::istreambuf_iterator<char>(file), {}};
    return static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '\0'));
}

/// The exit code of this program, run for one test under a name and with the odd arguments.
int RunAs(char const * name)
{
    std::vector<char *> arguments{
        const_cast<char *>(name), const_cast<char *>("--gtest_filter=LinuxCommandLines.KeepTheArguments")};
    for (char const * argument : oddArguments)
    {
        arguments.push_back(const_cast<char *>(argument));
    }
    arguments.push_back(nullptr);
    pid_t const child = fork();
    if (child == 0)
    {
        setenv(childMark, "1", 1);
        execv("/proc/self/exe", arguments.data());
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(LinuxCommandLines, KeepTheArguments)
{
    int count = 0;
    LPWSTR * const found = CommandLineToArgvW(GetCommandLineW(), &count);
    EXPECT_EQ(static_cast<std::size_t>(count), CountOfKernel());
    if (std::getenv(childMark) != nullptr)
    {
        std::vector<WString> const all(found, found + count);
        ASSERT_GE(all.size(), 8u);
        std::vector<WString> const last(all.end() - 8, all.end());
        std::vector<WString> const expected{u"a b", u"", u"c\"d", u"e\\", u"f g\\", u"\\\"", u"\t", u"--x=\u00E4"};
        EXPECT_EQ(last, expected);
        LocalFree(found);
        return;
    }
    LocalFree(found);
    for (char const * name : {"plain", "", "with blanks", "with \"quotes\"", "a\"b c", "\"", "back\\", "back blank\\"})
    {
        EXPECT_EQ(RunAs(name), 0) << name;
    }
}

} // namespace

#endif
