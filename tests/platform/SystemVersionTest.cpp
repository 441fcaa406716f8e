#include <set>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

TEST(SystemVersion, IsTheSameInBothRecords)
{
    OSVERSIONINFOEXW full = {};
    full.dwOSVersionInfoSize = sizeof(full);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&full)));
    OSVERSIONINFOW brief = {};
    brief.dwOSVersionInfoSize = sizeof(brief);
    ASSERT_TRUE(GetVersionExW(&brief));
    EXPECT_EQ(sizeof(full), full.dwOSVersionInfoSize);
    EXPECT_EQ(sizeof(brief), brief.dwOSVersionInfoSize);
    EXPECT_EQ(DWORD{VER_PLATFORM_WIN32_NT}, full.dwPlatformId);
    EXPECT_GE(full.dwMajorVersion, 6u);
    EXPECT_EQ(full.dwMajorVersion, brief.dwMajorVersion);
    EXPECT_EQ(full.dwMinorVersion, brief.dwMinorVersion);
    EXPECT_EQ(full.dwBuildNumber, brief.dwBuildNumber);
    EXPECT_EQ(full.dwPlatformId, brief.dwPlatformId);
    EXPECT_EQ(WString(full.szCSDVersion), WString(brief.szCSDVersion));
    EXPECT_EQ(VER_NT_WORKSTATION, full.wProductType);
}

TEST(SystemVersion, IsNotWrittenIntoAnUnknownRecord)
{
    OSVERSIONINFOEXW record = {};
    record.dwOSVersionInfoSize = 100;
    record.dwMajorVersion = 42;
    EXPECT_FALSE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&record)));
    EXPECT_EQ(42u, record.dwMajorVersion);
}

TEST(SystemVersion, HasAProductNumberFromVersionSixOn)
{
    DWORD product = 55;
    EXPECT_TRUE(GetProductInfo(6, 0, 0, 0, &product));
    EXPECT_NE(0u, product);
    EXPECT_NE(55u, product);
    DWORD older = 55;
    EXPECT_FALSE(GetProductInfo(5, 1, 0, 0, &older));
    EXPECT_EQ(0u, older);
    EXPECT_FALSE(GetProductInfo(6, 0, 0, 0, nullptr));
}

TEST(SystemVersion, ProcessesOfTheSystemsOwnKindAreNotEmulated)
{
    BOOL emulated = TRUE;
    EXPECT_TRUE(IsWow64Process(GetCurrentProcess(), &emulated));
    EXPECT_FALSE(emulated);
    SetLastError(0);
    EXPECT_FALSE(IsWow64Process(nullptr, &emulated));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, GetLastError());
}

TEST(SystemVersion, NewerFunctionsAreFoundByName)
{
    HMODULE const kernel = GetModuleHandleW(TEXT("kernel32.dll"));
    ASSERT_NE(nullptr, kernel);
    EXPECT_NE(nullptr, reinterpret_cast<void *>(GetProcAddress(kernel, "GetProductInfo")));
    EXPECT_NE(nullptr, reinterpret_cast<void *>(GetProcAddress(kernel, "IsWow64Process")));
    EXPECT_EQ(nullptr, reinterpret_cast<void *>(GetProcAddress(kernel, "NoSuchFunctionAtAll")));
}

TEST(SystemVersion, TheMachineIsWhatAProgramOfItsOwnKindSees)
{
    SYSTEM_INFO seen;
    SYSTEM_INFO native;
    GetSystemInfo(&seen);
    GetNativeSystemInfo(&native);
    EXPECT_EQ(seen.wProcessorArchitecture, native.wProcessorArchitecture);
    EXPECT_EQ(seen.dwNumberOfProcessors, native.dwNumberOfProcessors);
    EXPECT_EQ(seen.dwAllocationGranularity, native.dwAllocationGranularity);
}

namespace
{

std::multiset<unsigned long> enumerated;

BOOL CALLBACK Note(LPWSTR page)
{
    enumerated.insert(std::stoul(std::string(page, page + std::char_traits<WCHAR>::length(page))));
    return TRUE;
}

BOOL CALLBACK NoteOne(LPWSTR page)
{
    Note(page);
    return FALSE;
}

} // namespace

TEST(CodePageList, NamesEachPageOnceAndAllOfThemAreThere)
{
    enumerated.clear();
    EXPECT_TRUE(EnumSystemCodePagesW(Note, CP_INSTALLED));
    for (UINT const page : {437u, 850u, 932u, 936u, 1250u, 1252u, 20127u, 28591u, 28605u})
    {
        EXPECT_EQ(1u, enumerated.count(page)) << page;
    }
    for (unsigned long const page : enumerated)
    {
        EXPECT_EQ(1u, enumerated.count(page)) << page;
    }
}

TEST(CodePageList, EndsWhenTheCallbackSaysSo)
{
    enumerated.clear();
    EXPECT_TRUE(EnumSystemCodePagesW(NoteOne, CP_INSTALLED));
    EXPECT_EQ(1u, enumerated.size());
}

TEST(CodePageList, TellsWhatAPageIs)
{
    struct Expected
    {
        UINT page;
        UINT bytes;
        BYTE lead[4];
        WCHAR replacement;
        WCHAR const * name;
    };
    Expected const table[] = {
        {437, 1, {}, '?', TEXT("OEM United States")},
        {932, 2, {0x81, 0x9F, 0xE0, 0xFC}, 0x30FB, TEXT("ANSI/OEM Japanese Shift-JIS")},
        {936, 2, {0x81, 0xFE}, '?', TEXT("ANSI/OEM Simplified Chinese GBK")},
        {949, 2, {0x81, 0xFE}, '?', TEXT("ANSI/OEM Korean Unified Hangul")},
        {950, 2, {0x81, 0xFE}, '?', TEXT("ANSI/OEM Traditional Chinese Big5")},
        {1252, 1, {}, '?', TEXT("ANSI Latin 1")},
        {28605, 1, {}, '?', TEXT("ISO 8859-15 Latin 9 (Euro)")},
        {CP_MACCP, 1, {}, '?', TEXT("Mac Roman")},
        {CP_UTF7, 5, {}, 0xFFFD, TEXT("65000 (UTF-7)")},
        {CP_UTF8, 4, {}, 0xFFFD, TEXT("65001 (UTF-8)")},
    };
    for (Expected const & expected : table)
    {
        CPINFOEXW found;
        ASSERT_TRUE(GetCPInfoExW(expected.page, 0, &found)) << expected.page;
        EXPECT_EQ(expected.page == CP_MACCP ? 10000u : expected.page, found.CodePage);
        EXPECT_EQ(expected.bytes, found.MaxCharSize) << expected.page;
        EXPECT_EQ('?', found.DefaultChar[0]);
        EXPECT_EQ(0, found.DefaultChar[1]);
        EXPECT_EQ(expected.replacement, found.UnicodeDefaultChar) << expected.page;
        EXPECT_EQ(WString(expected.name), WString(found.CodePageName));
        for (int i = 0; i < 6; ++i)
        {
            EXPECT_EQ(i < 4 ? expected.lead[i] : 0, found.LeadByte[i]) << expected.page << " " << i;
        }
    }
}

TEST(CodePageList, UnknownPagesAreAnError)
{
    CPINFOEXW found;
    for (UINT const page : {42u, 12345u, 0xFFFFFFFFu})
    {
        SetLastError(0);
        EXPECT_FALSE(GetCPInfoExW(page, 0, &found));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    }
    EXPECT_FALSE(GetCPInfoExW(1252, 0, nullptr));
}
