#include <kvcore/frame/SysInfo.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/frame/detail/SystemClass.h>
#include <kvcore/platform/win32.h>
#include <support/SystemCalls.h>

namespace
{

using kv::detail::ClassifySystem;
using kv::detail::NameOfSystem;
using kv::detail::SystemFacts;
using kv::test::SystemCalls;

constexpr unsigned unknown = 0x7FFFFFFF;

SystemFacts Facts(DWORD platform, DWORD major, DWORD minor, unsigned productType = 1, unsigned suite = 0)
{
    SystemFacts facts;
    facts.platform = platform;
    facts.major = major;
    facts.minor = minor;
    facts.productType = productType;
    facts.suiteMask = suite;
    return facts;
}

unsigned Classify(SystemFacts const & facts)
{
    return static_cast<unsigned>(ClassifySystem(facts));
}

unsigned ClassifyServer2003(unsigned suite, bool isR2)
{
    SystemFacts facts = Facts(2, 5, 2, 3, suite);
    facts.isServerR2 = isR2;
    return Classify(facts);
}

unsigned ClassifyVista(unsigned productType, std::optional<DWORD> product, bool isWow64 = false)
{
    SystemFacts facts = Facts(2, 6, 0, productType);
    facts.product = product;
    facts.isWow64 = isWow64;
    return Classify(facts);
}

} // namespace

TEST(SystemClass, OfTheLineOfWindows95IsToldByTheMinorVersion)
{
    for (DWORD const major : {3u, 4u, 5u, 6u})
    {
        EXPECT_EQ(0x10000u, Classify(Facts(1, major, 0)));
        EXPECT_EQ(0x20000u, Classify(Facts(1, major, 10)));
        EXPECT_EQ(0x30000u, Classify(Facts(1, major, 90)));
        EXPECT_EQ(0x30000u, Classify(Facts(1, major, 1)));
    }
}

TEST(SystemClass, OfVersionFour)
{
    for (DWORD const minor : {0u, 5u})
    {
        EXPECT_EQ(0x40000u, Classify(Facts(2, 4, minor)));
        EXPECT_EQ(0x40000u, Classify(Facts(2, 4, minor, 1, 0x0002)));
        EXPECT_EQ(0x40100u, Classify(Facts(2, 4, minor, 3)));
        EXPECT_EQ(0x40100u, Classify(Facts(2, 4, minor, 2, 0x0080)));
        EXPECT_EQ(0x40101u, Classify(Facts(2, 4, minor, 3, 0x0002)));
        EXPECT_EQ(0x40101u, Classify(Facts(2, 4, minor, 2, 0x0082)));
    }
}

TEST(SystemClass, OfWindows2000)
{
    EXPECT_EQ(0x50000u, Classify(Facts(2, 5, 0)));
    EXPECT_EQ(0x50000u, Classify(Facts(2, 5, 0, 1, 0x0082)));
    EXPECT_EQ(0x50100u, Classify(Facts(2, 5, 0, 3)));
    EXPECT_EQ(0x50101u, Classify(Facts(2, 5, 0, 3, 0x0080)));
    EXPECT_EQ(0x50101u, Classify(Facts(2, 5, 0, 2, 0x0082)));
    EXPECT_EQ(0x50102u, Classify(Facts(2, 5, 0, 2, 0x0002)));
}

TEST(SystemClass, OfXP)
{
    for (unsigned const productType : {1u, 3u})
    {
        EXPECT_EQ(0x60000u, Classify(Facts(2, 5, 1, productType)));
        EXPECT_EQ(0x60001u, Classify(Facts(2, 5, 1, productType, 0x0200)));
        EXPECT_EQ(0x60001u, Classify(Facts(2, 5, 1, productType, 0x0240)));
        EXPECT_EQ(0x60002u, Classify(Facts(2, 5, 1, productType, 0x0040)));
    }
    EXPECT_EQ(0x60003u, Classify(Facts(2, 5, 2, 1)));
    EXPECT_EQ(0x60003u, Classify(Facts(2, 5, 2, 1, 0xFFFF)));
}

TEST(SystemClass, OfServer2003)
{
    struct Row
    {
        unsigned suite;
        unsigned plain;
        unsigned r2;
    };
    constexpr Row rows[] = {
        {0x0000, 0x70000, 0x70100}, {0x0400, 0x70001, 0x70101}, {0x4000, 0x70002, 0x70102}, {0x0080, 0x70003, 0x70103},
        {0x0002, 0x70004, 0x70104}, {0x2000, 0x70000, 0x70105}, {0x2002, 0x70004, 0x70104}, {0x4400, 0x70001, 0x70101},
        {0x4080, 0x70002, 0x70102}, {0x0082, 0x70003, 0x70103}, {0x6482, 0x70001, 0x70101}, {0x0100, 0x70000, 0x70100},
    };
    for (Row const & row : rows)
    {
        EXPECT_EQ(row.plain, ClassifyServer2003(row.suite, false)) << row.suite;
        EXPECT_EQ(row.r2, ClassifyServer2003(row.suite, true)) << row.suite;
    }
}

TEST(SystemClass, OfVistaIsToldByItsProductNumber)
{
    struct Row
    {
        DWORD product;
        unsigned system;
    };
    constexpr Row rows[] = {
        {1, 0x80008}, {2, 0x80004},  {3, 0x80006},  {4, 0x80003},          {5, 0x80005},
        {6, 0x80001}, {11, 0x80007}, {16, 0x80002}, {0xABCDABCD, 0x80009},
    };
    for (unsigned const productType : {1u, 3u}) // a plain server goes with the clients
    {
        for (Row const & row : rows)
        {
            EXPECT_EQ(row.system, ClassifyVista(productType, row.product)) << row.product;
            EXPECT_EQ(row.system | 0x100, ClassifyVista(productType, row.product, true)) << row.product;
        }
        for (DWORD const other : {0u, 7u, 8u, 12u, 25u, 48u, 0xFFFFFFFFu})
        {
            EXPECT_EQ(0x80000u, ClassifyVista(productType, other)) << other;
            EXPECT_EQ(0x80100u, ClassifyVista(productType, other, true)) << other;
        }
        EXPECT_EQ(0x80000u, ClassifyVista(productType, std::nullopt));
        EXPECT_EQ(0x80100u, ClassifyVista(productType, std::nullopt, true));
    }
}

TEST(SystemClass, OfTheServersOfVersionSixIsToldByItsProductNumber)
{
    struct Row
    {
        DWORD product;
        unsigned system;
    };
    constexpr Row rows[] = {
        {7, 0x9000B},  {8, 0x90002},  {9, 0x90009},  {10, 0x90004}, {12, 0x90001}, {13, 0x9000C},
        {14, 0x90005}, {15, 0x90006}, {17, 0x90011}, {18, 0x90003}, {19, 0x90007}, {20, 0x9000E},
        {21, 0x9000F}, {22, 0x90010}, {23, 0x9000D}, {24, 0x90008}, {25, 0x9000A}, {0xABCDABCD, 0x90012},
    };
    for (unsigned const productType : {0u, 2u})
    {
        for (bool const isWow64 : {false, true})
        {
            for (Row const & row : rows)
            {
                EXPECT_EQ(row.system, ClassifyVista(productType, row.product, isWow64)) << row.product;
            }
            for (DWORD const other : {0u, 1u, 6u, 11u, 16u, 26u, 0xFFFFFFFFu})
            {
                EXPECT_EQ(0x90000u, ClassifyVista(productType, other, isWow64)) << other;
            }
            EXPECT_EQ(0x90000u, ClassifyVista(productType, std::nullopt, isWow64));
        }
    }
}

TEST(SystemClass, OfEverythingElseIsUnknown)
{
    DWORD const versions[][2] = {{6, 1}, {6, 2}, {6, 3}, {10, 0}, {7, 0}, {5, 3}, {3, 51}, {0, 0}, {11, 0}};
    for (auto const & version : versions)
    {
        for (unsigned const productType : {1u, 2u, 3u})
        {
            EXPECT_EQ(unknown, Classify(Facts(2, version[0], version[1], productType, 0xFFFF)));
        }
    }
}

TEST(SystemName, IsThatOfItsTable)
{
    struct Row
    {
        unsigned system;
        WCHAR const * name;
    };
    constexpr Row rows[] = {
        {0x10000, TEXT("95")},
        {0x20000, TEXT("98")},
        {0x30000, TEXT("Me")},
        {0x40000, TEXT("NT 4.0")},
        {0x40100, TEXT("NT Server 4.0")},
        {0x40101, TEXT("NT Server 4.0 Enterprise Edition")},
        {0x50000, TEXT("2000 Professional Edition")},
        {0x50100, TEXT("2000 Server")},
        {0x50101, TEXT("2000 Datacenter Server")},
        {0x50102, TEXT("2000 Advanced Server")},
        {0x60000, TEXT("XP Professional Edition")},
        {0x60001, TEXT("XP Home Edition")},
        {0x60002, TEXT("XP Embedded")},
        {0x60003, TEXT("XP Professional x64 Edition")},
        {0x70000, TEXT("Server 2003 Standard Edition")},
        {0x70001, TEXT("Server 2003 Web Edition")},
        {0x70002, TEXT("Server 2003 Compute Cluster Edition")},
        {0x70003, TEXT("Server 2003 Datacenter Edition")},
        {0x70004, TEXT("Server 2003 Enterprise Edition")},
        {0x70100, TEXT("Server 2003 R2 Standard Edition")},
        {0x70101, TEXT("Server 2003 R2 Web Edition")},
        {0x70102, TEXT("Server 2003 R2 Compute Cluster Edition")},
        {0x70103, TEXT("Server 2003 R2 Datacenter Edition")},
        {0x70104, TEXT("Server 2003 R2 Enterprise Edition")},
        {0x70105, TEXT("Server 2003 R2 Storage Server Edition")},
        {0x80000, TEXT("Vista  Edition")},
        {0x80001, TEXT("Vista Business Edition")},
        {0x80002, TEXT("Vista Business N Edition")},
        {0x80003, TEXT("Vista Enterprise Edition")},
        {0x80004, TEXT("Vista Home Basic Edition")},
        {0x80005, TEXT("Vista Home Basic N Edition")},
        {0x80006, TEXT("Vista Home Premium Edition")},
        {0x80007, TEXT("Vista Starter Edition")},
        {0x80008, TEXT("Vista Ultimate Edition")},
        {0x80009, TEXT("Vista Unlicensed Edition")},
        {0x80100, TEXT("Vista x64  Edition")},
        {0x80101, TEXT("Vista x64 Business Edition")},
        {0x80102, TEXT("Vista x64 Business N Edition")},
        {0x80103, TEXT("Vista x64 Enterprise Edition")},
        {0x80104, TEXT("Vista x64 Home Basic Edition")},
        {0x80105, TEXT("Vista x64 Home Basic N Edition")},
        {0x80106, TEXT("Vista x64 Home Premium Edition")},
        {0x80107, TEXT("Vista x64 Starter Edition")},
        {0x80108, TEXT("Vista x64 Ultimate Edition")},
        {0x80109, TEXT("Vista x64 Unlicensed Edition")},
        {0x7FFFFFFF, TEXT("Post-Vista")},
        {0, TEXT("Post-Vista")},
        {0x70005, TEXT("Post-Vista")},
        {0x8000A, TEXT("Post-Vista")},
        {0x90013, TEXT("Post-Vista")},
        {0xA0000, TEXT("Post-Vista")},
    };
    for (Row const & row : rows)
    {
        String const expected = String(TEXT("Windows ")) + row.name;
        auto const system = static_cast<SysInfo::System>(row.system);
        EXPECT_EQ(expected, NameOfSystem(system, false)) << row.system;
        bool const isXP = row.system >> 16 == 6;
        EXPECT_EQ(expected + (isXP ? TEXT(" (Mediacenter)") : TEXT("")), NameOfSystem(system, true)) << row.system;
    }
    for (unsigned server = 0x90000; server <= 0x90012; ++server)
    {
        EXPECT_EQ(TEXT("Windows Server \"Longorn\""), NameOfSystem(static_cast<SysInfo::System>(server), false));
    }
}

TEST(SysInfo, KnowsTheSystemThatItRunsOn)
{
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    ASSERT_TRUE(GetVersionExW(reinterpret_cast<OSVERSIONINFOW *>(&version)));
    ASSERT_TRUE(version.dwMajorVersion > 6 || (version.dwMajorVersion == 6 && version.dwMinorVersion > 0));
    EXPECT_EQ(SysInfo::UnknownSystem, SysInfo::GetSystem());
    EXPECT_EQ(unknown, static_cast<unsigned>(SysInfo::GetSystem()));
    EXPECT_EQ(TEXT("Windows Post-Vista"), SysInfo::GetOSName());
}

TEST(SysInfo, AsksForTheMediaCenterByItsMetric)
{
    SystemCalls calls;
    std::vector<int> asked;
    calls.GetSystemMetrics = [&](int metric)
    {
        asked.push_back(metric);
        return 1;
    };
    SysInfo::GetSystem();
    asked.clear();
    EXPECT_EQ(TEXT("Windows Post-Vista"), SysInfo::GetOSName());
    EXPECT_EQ((std::vector<int>{87}), asked);
}

TEST(SysInfo, MayBeAskedForTheSystemByManyThreadsAtOnce)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([] { EXPECT_EQ(SysInfo::UnknownSystem, SysInfo::GetSystem()); });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
}

TEST(SysInfo, NamesTheProcessor)
{
    struct Row
    {
        WORD architecture;
        WCHAR const * name;
    };
    constexpr Row rows[] = {
        {0, TEXT("Intel")},   {6, TEXT("Intel 64")}, {10, TEXT("Intel 64")},    {9, TEXT("AMD 64")},
        {1, TEXT("Unknown")}, {12, TEXT("Unknown")}, {0xFFFF, TEXT("Unknown")},
    };
    for (Row const & row : rows)
    {
        SystemCalls calls;
        calls.GetSystemInfo = [&](SYSTEM_INFO * information)
        {
            *information = {};
            information->wProcessorArchitecture = row.architecture;
            information->dwNumberOfProcessors = 7;
        };
        SYSTEM_INFO information;
        String name = TEXT("before");
        SysInfo::GetSystemInfo(information, name);
        EXPECT_EQ(row.name, name);
        EXPECT_EQ(7u, information.dwNumberOfProcessors);
    }
    SYSTEM_INFO information;
    String name;
    SysInfo::GetSystemInfo(information, name);
    EXPECT_GE(information.dwNumberOfProcessors, 1u);
    EXPECT_FALSE(name.empty());
}

TEST(SysInfo, GivesTheValuesOfEnvironmentVariables)
{
    SetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO"), TEXT("x"));
    EXPECT_EQ(TEXT("x"), SysInfo::GetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO")));
    WString const longValue(5000, 'y');
    SetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO"), longValue.c_str());
    EXPECT_EQ(longValue, SysInfo::GetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO")));
    SetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO"), TEXT(""));
    EXPECT_EQ(TEXT(""), SysInfo::GetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO")));
    SetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO"), nullptr);
    EXPECT_EQ(TEXT(""), SysInfo::GetEnvironmentVariableW(TEXT("KVCORE_TEST_SYSINFO")));
    EXPECT_EQ(TEXT(""), SysInfo::GetEnvironmentVariableW(TEXT("")));
}

TEST(SysInfo, GivesNothingForAVariableThatChangesMeanwhile)
{
    for (DWORD const secondAnswer : {0u, 2u, 4u, 5u})
    {
        SystemCalls calls;
        calls.GetEnvironmentVariableW = [&](LPCWSTR, LPWSTR buffer, DWORD size) -> DWORD
        {
            if (buffer == nullptr)
            {
                return 4;
            }
            EXPECT_EQ(4u, size);
            buffer[0] = buffer[1] = buffer[2] = 'z';
            return secondAnswer;
        };
        EXPECT_EQ(TEXT(""), SysInfo::GetEnvironmentVariableW(TEXT("ANY"))) << secondAnswer;
    }
    SystemCalls calls;
    calls.GetEnvironmentVariableW = [&](LPCWSTR, LPWSTR buffer, DWORD) -> DWORD
    {
        if (buffer != nullptr)
        {
            buffer[0] = buffer[1] = buffer[2] = 'z';
            return 3;
        }
        return 4;
    };
    EXPECT_EQ(TEXT("zzz"), SysInfo::GetEnvironmentVariableW(TEXT("ANY")));
    calls.GetEnvironmentVariableW = [](LPCWSTR, LPWSTR buffer, DWORD) -> DWORD
    {
        EXPECT_EQ(nullptr, buffer) << "nothing to read";
        return 1;
    };
    EXPECT_EQ(TEXT(""), SysInfo::GetEnvironmentVariableW(TEXT("ANY")));
}

TEST(SysInfo, ListsTheCodePagesWithTheirNames)
{
    std::map<unsigned int, String> pages = {{1, TEXT("from before")}};
    SysInfo::EnumInstalledCodepages(pages);
    EXPECT_EQ(0u, pages.count(1));
    EXPECT_GT(pages.size(), 40u);
    for (auto const & [number, name] : pages)
    {
        CPINFOEXW information;
        EXPECT_TRUE(GetCPInfoExW(number, 0, &information)) << number;
        EXPECT_EQ(WString(information.CodePageName), name) << number;
    }
    EXPECT_EQ(1u, pages.count(1252));
}

TEST(SysInfo, LeavesOutWhatIsNoCodePageAndGoesOn)
{
    static int goneOn;
    goneOn = 0;
    SystemCalls calls;
    calls.EnumSystemCodePagesW = [](CODEPAGE_ENUMPROCW callback, DWORD flags)
    {
        EXPECT_EQ(1u, flags);
        for (WCHAR const * const text :
             {TEXT("0"), TEXT(""), TEXT("abc"), TEXT("42"), TEXT("12345"), TEXT("1252"), TEXT("99999999"), TEXT("437x"),
              TEXT("4294968146"), TEXT("1252")}) // 850, if 32 bits of it counted
        {
            WString page = text;
            goneOn += callback(page.data());
        }
        return TRUE;
    };
    std::map<unsigned int, String> pages;
    SysInfo::EnumInstalledCodepages(pages);
    EXPECT_EQ(10, goneOn);
    ASSERT_EQ(2u, pages.size());
    EXPECT_EQ(1u, pages.count(437));
    EXPECT_EQ(1u, pages.count(1252));
}

TEST(SysInfo, ListsCodePagesOnSeveralThreadsAtOnce)
{
    std::map<unsigned int, String> pages[4];
    std::vector<std::thread> threads;
    for (auto & list : pages)
    {
        threads.emplace_back([&list] { SysInfo::EnumInstalledCodepages(list); });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    for (auto const & list : pages)
    {
        EXPECT_EQ(pages[0], list);
    }
}
