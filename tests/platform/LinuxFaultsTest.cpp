#ifndef _WIN32 // What signals, their handlers and their stacks are to the faults' translators.

#    include <fcntl.h>
#    include <signal.h>
#    include <sys/mman.h>
#    include <sys/wait.h>
#    include <unistd.h>

#    include <cerrno>
#    include <functional>
#    include <thread>

#    include <kvcore/platform/Faults.h>
#    include <kvcore/platform/StackSpace.h>
#    include <kvcore/platform/include/faults.h>
#    include <support/FaultKinds.h>
#    include <support/PlatformDefault.h>
#    include <support/ScratchFolder.h>
#    include <support/StackOfSize.h>

#    include <gtest/gtest.h>

namespace
{

using kv::platform::FaultTranslator;
using kv::platform::SetFaultTranslator;

void ThrowCode(unsigned code, EXCEPTION_POINTERS *)
{
    throw code;
}

unsigned CodeOf(std::function<void()> const & provoke)
{
    FaultTranslator const before = SetFaultTranslator(ThrowCode);
    unsigned caught = 0;
    try
    {
        provoke();
    }
    catch (unsigned code)
    {
        caught = code;
    }
    SetFaultTranslator(before);
    return caught;
}

__attribute__((noinline, no_sanitize("address", "undefined"))) char ReadAt(char const volatile * place)
{
    return *place;
}

TEST(LinuxFaults, AReadBehindAMappedFilesEndIsAnInPageError)
{
    ScratchFolder const folder;
    std::filesystem::path const path = folder.Write("short", "abc");
    int const file = open(path.c_str(), O_RDONLY);
    std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void * const view = mmap(nullptr, 2 * page, PROT_READ, MAP_SHARED, file, 0);
    ASSERT_NE(view, MAP_FAILED);
    char const * const bytes = static_cast<char const *>(view);
    for (int i = 0; i < 100; ++i)
    {
        EXPECT_EQ(CodeOf([bytes, page] { ReadAt(bytes + page); }), 0xC0000006u);
    }
    EXPECT_EQ(ReadAt(bytes), 'a');
    munmap(view, 2 * page);
    close(file);
}

TEST(LinuxFaults, TheWin32NameSetsTheSameTranslator)
{
    _se_translator_function const before = _set_se_translator(ThrowCode);
    EXPECT_EQ(SetFaultTranslator(before), FaultTranslator(ThrowCode));
}

TEST(LinuxFaults, AnExhaustedSmallStackIsCaught)
{
    kv::test::RunOnStackOf(
        192 * 1024,
        []
        {
            for (int i = 0; i < 3; ++i)
            {
                long constructed = 0;
                long destroyed = 0;
                EXPECT_EQ(CodeOf([&] { kv::test::ExhaustStack(constructed, destroyed); }), 0xC00000FDu);
                EXPECT_EQ(constructed, destroyed);
            }
        });
}

// The reserve at the stack's end is not the thread's, so code that asks how far it may recurse must not be told of it.
TEST(LinuxFaults, TheStacksReserveIsNotCountedAsLeft)
{
    std::thread(
        []
        {
            std::size_t const before = kv::platform::StackBytesLeft();
            FaultTranslator const none = SetFaultTranslator(ThrowCode);
            EXPECT_LE(kv::platform::StackBytesLeft() + 64 * 1024, before);
            SetFaultTranslator(none);
        })
        .join();
}

// The C library gives a thread's stack to later threads, which must find it whole.
TEST(LinuxFaults, AThreadsStackIsWholeAgainAfterIt)
{
    std::thread([] { EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u); }).join();
    std::size_t left = 0;
    std::thread(
        [&left]
        {
            left = kv::platform::StackBytesLeft();
            // All of it but the guard pages and a margin can be written to.
            std::size_t const size = left - 32 * 1024;
            char volatile * const end = static_cast<char *>(__builtin_alloca(size));
            for (std::size_t i = 0; i < size; i += 4096)
            {
                end[size - 1 - i] = 1;
            }
            end[0] = 1;
        })
        .join();
    EXPECT_GT(left, 64u * 1024);
}

TEST(LinuxFaults, AThreadsOwnAlternateStackStays)
{
    std::thread(
        []
        {
            constexpr std::size_t size = 128 * 1024;
            void * const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            stack_t own = {};
            own.ss_sp = memory;
            own.ss_size = size;
            stack_t before = {};
            ASSERT_EQ(sigaltstack(&own, &before), 0);
            EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u);
            stack_t after = {};
            sigaltstack(&before, &after);
            EXPECT_EQ(after.ss_sp, memory);
            munmap(memory, size);
        })
        .join();
}

void * FaultFarDown(void * alternate)
{
    stack_t own = {};
    own.ss_sp = alternate;
    own.ss_size = 128 * 1024;
    stack_t before = {};
    EXPECT_EQ(sigaltstack(&own, &before), 0);
    std::size_t const left = kv::platform::StackBytesLeft();
    char volatile * const far = static_cast<char *>(__builtin_alloca(left - 56 * 1024));
    far[0] = 1;
    EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u);
    sigaltstack(&before, nullptr);
    return nullptr;
}

// Then the handler's frame lies as close below the fault's as one on the same stack would.
TEST(LinuxFaults, TheAlternateStackMayLieRightBelowTheThreads)
{
    constexpr std::size_t alternateSize = 128 * 1024;
    constexpr std::size_t size = alternateSize + 2048 * 1024;
    void * const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, static_cast<char *>(memory) + alternateSize, size - alternateSize);
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, &attributes, FaultFarDown, memory), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    munmap(memory, size);
}

TEST(LinuxFaults, ASignalStaysUnblockedAfterAFault)
{
    EXPECT_EQ(CodeOf(kv::test::ReadThroughNull), 0xC0000005u);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
}

TEST(LinuxFaults, TheLastErrorNumberOfTheCLibraryStays)
{
    errno = 77;
    EXPECT_EQ(CodeOf(kv::test::DivideByZero), 0xC0000094u);
    EXPECT_EQ(errno, 77);
}

using LinuxFaultsDeathTest = ::testing::Test;

// What a program sends is not the processor's doing.
TEST(LinuxFaultsDeathTest, ASignalThatIsSentHasThePlatformsDefault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const sendWithinAScope = []
    {
        kv::test::HaveThePlatformsDefault();
        SetFaultTranslator(ThrowCode);
        kill(getpid(), SIGSEGV);
    };
    EXPECT_EXIT(sendWithinAScope(), kv::test::EndedByBadPointer, "");
}

[[noreturn]] void EndInTheFormerHandler(int signal, siginfo_t * information, void *)
{
    _exit(signal == SIGSEGV && information->si_addr == nullptr ? 7 : 8);
}

TEST(LinuxFaultsDeathTest, OutsideAScopeAFormerHandlerHasTheFault)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const faultWithAFormerHandler = []
    {
        struct sigaction action = {};
        action.sa_sigaction = EndInTheFormerHandler;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &action, nullptr);
        if (CodeOf(kv::test::ReadThroughNull) == 0xC0000005u)
        {
            kv::test::ReadThroughNull();
        }
    };
    EXPECT_EXIT(faultWithAFormerHandler(), ::testing::ExitedWithCode(7), "");
}

TEST(LinuxFaultsDeathTest, AnIgnoredSignalThatIsSentIsIgnored)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const sendAnIgnoredSignal = []
    {
        signal(SIGSEGV, SIG_IGN);
        SetFaultTranslator(ThrowCode);
        kill(getpid(), SIGSEGV);
        _exit(5);
    };
    EXPECT_EXIT(sendAnIgnoredSignal(), ::testing::ExitedWithCode(5), "");
}

TEST(LinuxFaultsDeathTest, ATranslatorOfAThreadThatHasEndedIsNobodysElse)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const faultAfterAThreadsEnd = []
    {
        kv::test::HaveThePlatformsDefault();
        std::thread([] { SetFaultTranslator(ThrowCode); }).join();
        kv::test::ReadThroughNull();
    };
    EXPECT_EXIT(faultAfterAThreadsEnd(), kv::test::EndedByBadPointer, "");
}

} // namespace

#endif
