#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

/// A variable that is gone at the end.
class Variable
{
public:
    Variable(LPCWSTR variableName, LPCWSTR value) : name(variableName)
    {
        EXPECT_TRUE(SetEnvironmentVariableW(name, value));
    }
    Variable(Variable const &) = delete;
    Variable & operator=(Variable const &) = delete;
    ~Variable()
    {
        SetEnvironmentVariableW(name, nullptr);
    }

private:
    LPCWSTR name;
};

WString ValueOf(LPCWSTR name)
{
    WCHAR buffer[100] = {};
    DWORD const length = GetEnvironmentVariableW(name, buffer, 100);
    return WString(buffer, length < 100 ? length : 0);
}

WString Expanded(LPCWSTR source)
{
    WCHAR buffer[100] = {};
    DWORD const size = ExpandEnvironmentStringsW(source, buffer, 100);
    EXPECT_EQ(std::char_traits<WCHAR>::length(buffer) + 1, size);
    return buffer;
}

} // namespace

TEST(Environment, VariablesAreReadAsTheyWereSet)
{
    Variable const variable(TEXT("KVCORE_TEST_A"), TEXT("gr\x00FC\x00DF"));
    EXPECT_EQ(TEXT("gr\x00FC\x00DF"), ValueOf(TEXT("KVCORE_TEST_A")));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("KVCORE_TEST_A"), TEXT("b")));
    EXPECT_EQ(TEXT("b"), ValueOf(TEXT("KVCORE_TEST_A")));
}

TEST(Environment, NamesAreFoundInAnyCase)
{
    Variable const variable(TEXT("KvCore_Test_B"), TEXT("1"));
    EXPECT_EQ(TEXT("1"), ValueOf(TEXT("kvcore_test_b")));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("KVCORE_TEST_B"), TEXT("2")));
    EXPECT_EQ(TEXT("2"), ValueOf(TEXT("KvCore_Test_B")));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("kvcore_TEST_b"), nullptr));
    EXPECT_EQ(0u, GetEnvironmentVariableW(TEXT("KvCore_Test_B"), nullptr, 0));
}

TEST(Environment, SizesCountTheNulAndLengthsDoNot)
{
    Variable const variable(TEXT("KVCORE_TEST_C"), TEXT("abc"));
    WCHAR buffer[4] = {};
    EXPECT_EQ(4u, GetEnvironmentVariableW(TEXT("KVCORE_TEST_C"), nullptr, 0));
    EXPECT_EQ(4u, GetEnvironmentVariableW(TEXT("KVCORE_TEST_C"), buffer, 3));
    EXPECT_EQ(3u, GetEnvironmentVariableW(TEXT("KVCORE_TEST_C"), buffer, 4));
}

TEST(Environment, AVariableMayBeEmpty)
{
    Variable const variable(TEXT("KVCORE_TEST_D"), TEXT(""));
    WCHAR buffer[4] = {'x'};
    EXPECT_EQ(1u, GetEnvironmentVariableW(TEXT("KVCORE_TEST_D"), nullptr, 0));
    EXPECT_EQ(0u, GetEnvironmentVariableW(TEXT("KVCORE_TEST_D"), buffer, 4));
    EXPECT_EQ(0, buffer[0]);
}

TEST(Environment, MissingVariablesAreAnError)
{
    WCHAR buffer[4] = {};
    for (LPCWSTR const name : {TEXT("KVCORE_TEST_NONE"), TEXT(""), static_cast<LPCWSTR>(nullptr)})
    {
        SetLastError(0);
        EXPECT_EQ(0u, GetEnvironmentVariableW(name, buffer, 4));
        EXPECT_EQ(DWORD{ERROR_ENVVAR_NOT_FOUND}, GetLastError());
    }
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("KVCORE_TEST_NONE"), nullptr));
}

TEST(Environment, NamesHaveNoEqualsSignAndAreNotEmpty)
{
    for (LPCWSTR const name : {TEXT(""), TEXT("a=b"), TEXT("a="), TEXT("=="), TEXT("=a="), TEXT("=a=b")})
    {
        SetLastError(0);
        EXPECT_FALSE(SetEnvironmentVariableW(name, TEXT("x")));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    }
}

TEST(Environment, NamesMayBeginWithAnEqualsSign)
{
    for (LPCWSTR const name : {TEXT("=KvTest:"), TEXT("=KvTest"), TEXT("=")})
    {
        EXPECT_TRUE(SetEnvironmentVariableW(name, TEXT("a=b")));
        EXPECT_EQ(TEXT("a=b"), ValueOf(name));
        EXPECT_TRUE(SetEnvironmentVariableW(name, TEXT("another")));
        EXPECT_EQ(TEXT("another"), ValueOf(name));
    }
    EXPECT_EQ(TEXT("another"), ValueOf(TEXT("=KVTEST:")));
    EXPECT_EQ(TEXT("<another>"), Expanded(TEXT("<%=kvtest:%>")));
    {
        Variable const other(TEXT("KVCORE_TEST_G"), TEXT("beside it"));
        EXPECT_EQ(TEXT("beside it"), ValueOf(TEXT("KVCORE_TEST_G")));
    }
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("=KVTEST:"), nullptr));
    EXPECT_EQ(0u, GetEnvironmentVariableW(TEXT("=KvTest:"), nullptr, 0));
    EXPECT_EQ(TEXT("another"), ValueOf(TEXT("=KvTest"))) << "the others stay";
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("=KvTest"), TEXT("")));
    EXPECT_EQ(1u, GetEnvironmentVariableW(TEXT("=KvTest"), nullptr, 0));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("=KvTest"), nullptr));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("="), nullptr));
    EXPECT_TRUE(SetEnvironmentVariableW(TEXT("=KvTest"), nullptr)) << "it is gone already";
}

TEST(Environment, NamesBetweenPercentSignsAreExpanded)
{
    Variable const variable(TEXT("KVCORE_TEST_E"), TEXT("2%KVCORE_TEST_E%"));
    EXPECT_EQ(TEXT("a2%KVCORE_TEST_E%b"), Expanded(TEXT("a%kvcore_test_e%b")));
    EXPECT_EQ(TEXT(""), Expanded(TEXT("")));
    EXPECT_EQ(TEXT("%"), Expanded(TEXT("%")));
    EXPECT_EQ(TEXT("100%"), Expanded(TEXT("100%")));
    EXPECT_EQ(TEXT("%%"), Expanded(TEXT("%%")));
    EXPECT_EQ(TEXT("a%nope%c%%d%e"), Expanded(TEXT("a%nope%c%%d%e")));
    EXPECT_EQ(TEXT("%nope%KVCORE_TEST_E%"), Expanded(TEXT("%nope%KVCORE_TEST_E%")));
}

TEST(Environment, ExpandedTextsTellTheSizeThatTheyNeed)
{
    Variable const variable(TEXT("KVCORE_TEST_F"), TEXT("xyz"));
    WCHAR buffer[6] = {};
    for (DWORD const size : {0u, 1u, 3u, 5u})
    {
        SetLastError(0);
        EXPECT_EQ(6u, ExpandEnvironmentStringsW(TEXT("a%KVCORE_TEST_F%b"), size != 0 ? buffer : nullptr, size));
        EXPECT_EQ(DWORD{ERROR_INSUFFICIENT_BUFFER}, GetLastError());
        EXPECT_EQ(WString(TEXT("axyzb"), size != 0 ? size - 1 : 0), buffer) << "what there is room for";
    }
    EXPECT_EQ(6u, ExpandEnvironmentStringsW(TEXT("a%KVCORE_TEST_F%b"), buffer, 6));
}

TEST(Environment, MayBeChangedAndReadByAllThreads)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [t]
            {
                WString const name = WString(TEXT("KVCORE_TEST_T")) + static_cast<WCHAR>('0' + t);
                for (int i = 0; i < 200; ++i)
                {
                    EXPECT_TRUE(SetEnvironmentVariableW(name.c_str(), TEXT("value")));
                    EXPECT_EQ(TEXT("value"), ValueOf(name.c_str()));
                    EXPECT_TRUE(SetEnvironmentVariableW(name.c_str(), nullptr));
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
}
