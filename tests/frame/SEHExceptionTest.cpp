#include <kvcore/frame/SEHException.h>

#include <atomic>
#include <functional>
#include <thread>
#include <type_traits>
#include <vector>

#include <kvcore/frame/detail/CrashReporter.h>
#include <kvcore/frame/detail/ThreadName.h>
#include <kvcore/platform/Faults.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/MemoryStreams.h>

#include <gtest/gtest.h>

#include <support/FaultKinds.h>
#include <support/PlatformDefault.h>
#include <support/SystemCalls.h>

namespace
{

using kv::platform::FaultTranslator;
using kv::platform::SetFaultTranslator;
using kv::test::FaultKind;

FaultTranslator CurrentTranslator()
{
    FaultTranslator const current = SetFaultTranslator(nullptr);
    SetFaultTranslator(current);
    return current;
}

/// Work that is a function.
class Call final : public SEHCall
{
public:
    explicit Call(std::function<void()> function) : work(std::move(function)) {}
    void Execute() override
    {
        work();
    }

private:
    std::function<void()> work;
};

void * Location(ULONG_PTR address)
{
    return reinterpret_cast<void *>(address);
}

TEST(SEHException, KeepsCodeAndLocation)
{
    SEHException const exception(0xC0000094, Location(0x1234));
    EXPECT_EQ(exception.GetCode(), 0xC0000094u);
    EXPECT_EQ(exception.GetModuleLocation(), Location(0x1234));
}

TEST(SEHException, IsAPlainValue)
{
    EXPECT_TRUE(std::is_trivially_copyable_v<SEHException>);
    EXPECT_FALSE(std::is_polymorphic_v<SEHException>);
    EXPECT_EQ(sizeof(SEHException), 2 * sizeof(void *));
    SEHException copy(1, nullptr);
    copy = SEHException(0xC0000005, Location(8));
    EXPECT_EQ(copy.GetCode(), 0xC0000005u);
    EXPECT_EQ(copy.GetModuleLocation(), Location(8));
}

TEST(SEHException, SaysItsCodeInWords)
{
    struct
    {
        ULONG code;
        WCHAR const * text;
    } const codes[] = {
        {0x80000002, TEXT("Data type misalignment")},
        {0x80000003, TEXT("Break point")},
        {0x80000004, TEXT("Single step")},
        {0xC0000005, TEXT("Access violation")},
        {0xC0000006, TEXT("In page error")},
        {0xC000001D, TEXT("Illegal instruction")},
        {0xC0000025, TEXT("Non-continuable exception")},
        {0xC0000026, TEXT("Invalid disposition")},
        {0xC000008C, TEXT("Array bounds exceeded")},
        {0xC000008D, TEXT("Denormal operand (FLT)")},
        {0xC000008E, TEXT("Divide by zero (FLT)")},
        {0xC000008F, TEXT("Inexact result (FLT)")},
        {0xC0000090, TEXT("Invalid operation (FLT)")},
        {0xC0000091, TEXT("Overflow (FLT)")},
        {0xC0000092, TEXT("Stack check (FLT)")},
        {0xC0000093, TEXT("Underflow (FLT)")},
        {0xC0000094, TEXT("Divide by zero (INT)")},
        {0xC0000095, TEXT("Overflow (INT)")},
        {0xC0000096, TEXT("Priv instruction")},
        {0xC00000FD, TEXT("Stack overflow")},
        {0xE06D7363, TEXT("Unknown")},
        {0x80000001, TEXT("Unknown")},
        {0, TEXT("Unknown")},
    };
    for (auto const & code : codes)
    {
        EXPECT_EQ(SEHException(code.code, nullptr).GetCodeAsString(), code.text) << code.code;
    }
}

String PathOfProgram()
{
    WCHAR path[4096];
    return String(WString(path, ::GetModuleFileNameW(nullptr, path, 4096)));
}

TEST(SEHException, ALocationInNoModuleIsTheMainExecutables)
{
    EXPECT_EQ(SEHException(0xC0000005, nullptr).GetModuleFileNameW(), PathOfProgram());
}

int inTheProgram = 0;

TEST(SEHException, ALocationInTheProgramIsTheMainExecutables)
{
    EXPECT_EQ(SEHException(0xC0000005, &inTheProgram).GetModuleFileNameW(), PathOfProgram());
}

TEST(SEHException, ALocationInAnotherModuleNamesThat)
{
    FaultTranslator inTheLibrary = nullptr;
    {
        SEHTryCatchEnabler const scope(TEXT("x"));
        inTheLibrary = CurrentTranslator();
    }
    String const path = SEHException(0, reinterpret_cast<void *>(inTheLibrary)).GetModuleFileNameW();
    EXPECT_NE(path, PathOfProgram());
    EXPECT_NE(path.find(TEXT("kvcore")), String::npos) << path.Utf8();
}

TEST(SEHException, SaysAllInOneSentence)
{
    EXPECT_EQ(
        SEHException(0xC0000005, Location(0x1000)).GetMsg(),
        TEXT("Fatal exception 'Access violation' caused by module '") + PathOfProgram() +
            TEXT("' at location 0x00001000"));
    if constexpr (sizeof(void *) == 8)
    {
        String const farther = SEHException(1, Location(static_cast<ULONG_PTR>(0x1234567890ABull))).GetMsg();
        EXPECT_TRUE(WString(farther).ends_with(WString(TEXT(" at location 0x1234567890AB")))) << farther.Utf8();
    }
}

TEST(SEHException, NamesTheModuleThatTheSystemNames)
{
    kv::test::SystemCalls calls;
    calls.GetModuleFileNameW = [](HMODULE, LPWSTR buffer, DWORD capacity) -> DWORD
    {
        WString const path = TEXT("c:\\app\\a.exe");
        return static_cast<DWORD>(path.copy(buffer, capacity));
    };
    EXPECT_EQ(
        SEHException(0xC0000005, Location(0x00401000)).GetMsg(),
        TEXT("Fatal exception 'Access violation' caused by module 'c:\\app\\a.exe' at location 0x00401000"));
}

TEST(SEHException, TakesTheWholeOfALongPath)
{
    struct
    {
        std::size_t length;
        std::vector<DWORD> capacities;
    } const cases[] = {{259, {260}}, {260, {260, 780}}, {779, {260, 780}}, {780, {260, 780, 1820}}};
    for (auto const & one : cases)
    {
        kv::test::SystemCalls calls;
        std::vector<DWORD> capacities;
        calls.GetModuleFileNameW = [&](HMODULE, LPWSTR buffer, DWORD capacity) -> DWORD
        {
            capacities.push_back(capacity);
            return static_cast<DWORD>(WString(one.length, 'p').copy(buffer, capacity));
        };
        EXPECT_EQ(SEHException(0, nullptr).GetModuleFileNameW(), String::FromChar('p', static_cast<int>(one.length)));
        EXPECT_EQ(capacities, one.capacities) << one.length;
    }
}

class SEHFault : public ::testing::TestWithParam<FaultKind>
{
};

TEST_P(SEHFault, InsideAScopeIsAnException)
{
    for (int i = 0; i < 20; ++i)
    {
        SEHTryCatchEnabler const scope(TEXT("test"));
        ULONG code = 0;
        try
        {
            GetParam().provoke();
        }
        catch (SEHException const & exception)
        {
            code = exception.GetCode();
        }
        EXPECT_EQ(code, GetParam().code);
    }
}

TEST_P(SEHFault, InsideACallIsAnExceptionWithoutAnyReport)
{
    ASSERT_EQ(kv::detail::CrashReporter::Current(), nullptr);
    ULONG code = 0;
    try
    {
        Call(GetParam().provoke).DoCall();
    }
    catch (SEHException const & exception)
    {
        code = exception.GetCode();
    }
    EXPECT_EQ(code, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, SEHFault, ::testing::ValuesIn(kv::test::faultKinds, kv::test::faultKinds + kv::test::faultKindCount),
    [](auto const & information) { return information.param.name; });

/// Reads from where there is nothing.
class FaultingSource : public InputStream
{
public:
    FaultingSource() : InputStream(nullptr) {}
    void Read(char *, int) override
    {
        kv::test::ReadThroughNull();
    }
};

// The library's own frames lie between the fault and the handler.
TEST(SEHCall, AFaultUnderTheLibraryPassesThroughIt)
{
    ULONG code = 0;
    try
    {
        Call(
            []
            {
                FaultingSource source;
                CRCInputStream stream(source);
                char byte;
                stream.Read(&byte, 1);
            })
            .DoCall();
    }
    catch (SEHException const & exception)
    {
        code = exception.GetCode();
    }
    EXPECT_EQ(code, 0xC0000005u);
}

// The fault is an instruction of the library.
TEST(SEHCall, AFaultInTheLibraryIsAnException)
{
    ULONG code = 0;
    try
    {
        Call(
            []
            {
                CRCInputStream & missing = *reinterpret_cast<CRCInputStream *>(Location(64));
                char byte;
                missing.CRCInputStream::Read(&byte, 1);
            })
            .DoCall();
    }
    catch (SEHException const & exception)
    {
        code = exception.GetCode();
    }
    EXPECT_EQ(code, 0xC0000005u);
}

TEST(SEHCall, RestoresTheTranslator)
{
    FaultTranslator const before = CurrentTranslator();
    FaultTranslator inside = before;
    Call([&inside] { inside = CurrentTranslator(); }).DoCall();
    EXPECT_NE(inside, before);
    EXPECT_EQ(CurrentTranslator(), before);
}

TEST(SEHCall, RestoresTheTranslatorWhenAnExceptionLeavesIt)
{
    FaultTranslator const before = CurrentTranslator();
    EXPECT_THROW(Call([] { throw 7; }).DoCall(), int);
    EXPECT_EQ(CurrentTranslator(), before);
    EXPECT_THROW(Call(kv::test::DivideByZero).DoCall(), SEHException);
    EXPECT_EQ(CurrentTranslator(), before);
}

TEST(SEHCall, LeavesTheThreadsNameAlone)
{
    std::thread(
        []
        {
            Call([] {}).DoCall();
            EXPECT_EQ(kv::detail::ThreadNameBuffer()[0], 0);
        })
        .join();
}

TEST(SEHTryCatchEnabler, NestsAndRestoresInReverseOrder)
{
    FaultTranslator const outside = CurrentTranslator();
    FaultTranslator const other = [](unsigned, EXCEPTION_POINTERS *) { throw 5; };
    {
        SEHTryCatchEnabler const outer(TEXT("outer"));
        FaultTranslator const ours = CurrentTranslator();
        EXPECT_NE(ours, outside);
        SetFaultTranslator(other);
        {
            SEHTryCatchEnabler const inner(TEXT("inner"));
            EXPECT_EQ(CurrentTranslator(), ours);
            EXPECT_THROW(kv::test::DivideByZero(), SEHException);
        }
        EXPECT_EQ(CurrentTranslator(), other);
        EXPECT_EQ(String(kv::detail::ThreadNameBuffer()), TEXT("inner"));
    }
    EXPECT_EQ(CurrentTranslator(), outside);
    EXPECT_EQ(String(kv::detail::ThreadNameBuffer()), TEXT("inner"));
}

TEST(SEHTryCatchEnabler, NamesItsThreadAlone)
{
    SEHTryCatchEnabler const scope(TEXT("this"));
    std::thread(
        []
        {
            EXPECT_EQ(kv::detail::ThreadNameBuffer()[0], 0);
            SEHTryCatchEnabler const other(TEXT("that"));
            EXPECT_EQ(String(kv::detail::ThreadNameBuffer()), TEXT("that"));
        })
        .join();
    EXPECT_EQ(String(kv::detail::ThreadNameBuffer()), TEXT("this"));
}

TEST(SEHTryCatchEnabler, TakesNamesThatFitWhole)
{
    WString const longest(255, 'n');
    {
        SEHTryCatchEnabler const scope(longest.c_str());
        EXPECT_EQ(WString(kv::detail::ThreadNameBuffer()), longest);
    }
    WString const tooLong(256, 'n');
    {
        SEHTryCatchEnabler const scope(tooLong.c_str());
        EXPECT_EQ(kv::detail::ThreadNameBuffer()[0], 0);
    }
    SEHTryCatchEnabler const scope(nullptr);
    EXPECT_EQ(kv::detail::ThreadNameBuffer()[0], 0);
}

TEST(SEHTryCatchEnabler, AnAssignedOneRestoresTheOthersTranslator)
{
    FaultTranslator const outside = CurrentTranslator();
    FaultTranslator const other = [](unsigned, EXCEPTION_POINTERS *) { throw 5; };
    {
        SEHTryCatchEnabler first(TEXT("first"));
        SetFaultTranslator(other);
        {
            SEHTryCatchEnabler second(TEXT("second"));
            second = first;
        }
        EXPECT_EQ(CurrentTranslator(), outside);
    }
    EXPECT_EQ(CurrentTranslator(), outside);
}

TEST(SEHTryCatchEnabler, TranslatesOnManyThreadsAtOnce)
{
    std::atomic<int> caught = 0;
    auto const work = [&caught]
    {
        SEHTryCatchEnabler const scope(TEXT("worker"));
        for (int i = 0; i < 500; ++i)
        {
            try
            {
                kv::test::HandBadPointerToTheCLibrary();
            }
            catch (SEHException const & exception)
            {
                caught += exception.GetCode() == 0xC0000005u;
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
    {
        threads.emplace_back(work);
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(caught, 4000);
}

#ifndef _WIN32 // where this runs, the system ends a process that has used up its stack
TEST(SEHTryCatchEnabler, TranslatesAnExhaustedStack)
{
    long constructed = 0;
    long destroyed = 0;
    ULONG code = 0;
    try
    {
        SEHTryCatchEnabler const scope(TEXT("deep"));
        kv::test::ExhaustStack(constructed, destroyed);
    }
    catch (SEHException const & exception)
    {
        code = exception.GetCode();
    }
    EXPECT_EQ(code, 0xC00000FDu);
    EXPECT_EQ(constructed, destroyed);
}
#endif

TEST(SEHTryCatchEnablerDeathTest, AFaultAfterTheScopeHasThePlatformsDefault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const leaveAndFault = []
    {
        kv::test::HaveThePlatformsDefault();
        {
            SEHTryCatchEnabler const scope(TEXT("over"));
        }
        kv::test::ReadThroughNull();
    };
    EXPECT_EXIT(leaveAndFault(), kv::test::EndedByBadPointer, "");
}

} // namespace
