#ifndef _WIN32 // Requests that certainly are on their way: this system's pool can be held.

#    include <string>
#    include <thread>

#    include <gtest/gtest.h>

#    include <kvcore/platform/linux/overlapped/RequestPool.h>
#    include <support/AsyncFiles.h>
#    include <support/FileErrors.h>
#    include <support/ScratchFolder.h>
#    include <support/TestBytes.h>

using namespace kv::test;
using kv::platform::HoldRequests;
using kv::platform::SetRequestLimit;

namespace
{

struct HeldRequests : testing::Test
{
    ~HeldRequests() override
    {
        HoldRequests(false);
        SetRequestLimit(0);
    }
    ScratchFolder folder;
    std::string const content = RandomBytes(100 * 64);
};

} // namespace

TEST_F(HeldRequests, CloseWaitsForAllOfThem)
{
    AsyncFile stream(folder.Name("a"));
    HoldRequests(true);
    for (std::size_t i = 0; i < 100; ++i)
    {
        if (i % 2 == 0)
        {
            EXPECT_NE(stream.WriteAsyncEx(content.data() + i * 64, 64), nullptr);
        }
        else
        {
            stream.WriteAsync(content.data() + i * 64, 64);
        }
    }
    EXPECT_EQ(stream.completions, 0);
    EXPECT_EQ(folder.Read("a"), "");
    std::thread later([] { HoldRequests(false); });
    stream.Close();
    later.join();
    EXPECT_EQ(stream.completions, 50);
    EXPECT_TRUE(folder.Read("a") == content);
}

TEST_F(HeldRequests, AreCancelledByAFailureThatIsLatched)
{
    AsyncFile stream(folder.Name("a"));
    HoldRequests(true);
    stream.WriteAsync("abc", 3);
    stream.WriteAsyncEx("def", 3);
    stream.CompletionRoutine(ERROR_WRITE_FAULT, 0, new OVERLAPPED());
    EXPECT_EQ(ErrorOf([&] { stream.HasCompleted(nullptr); }), DWORD(ERROR_WRITE_FAULT));
    stream.Close(); // while the pool is held: nothing is left to wait for
    EXPECT_EQ(folder.Read("a"), "");
}

TEST_F(HeldRequests, BeyondTheSystemsBoundAreIssuedWhenOthersHaveFinished)
{
    SetRequestLimit(4);
    {
        AsyncFile stream(folder.Name("a"));
        for (std::size_t i = 0; i < 100; ++i)
        {
            stream.WriteAsync(content.data() + i * 64, 64);
        }
        stream.Close();
        EXPECT_TRUE(folder.Read("a") == content);
    }
    AsyncFile stream(folder.Name("b"));
    for (std::size_t i = 0; i < 100; ++i)
    {
        stream.WriteAsyncEx(content.data() + i * 64, 64);
    }
    stream.Close();
    EXPECT_EQ(stream.completions, 100);
    EXPECT_TRUE(folder.Read("b") == content);
}

TEST_F(HeldRequests, OfAManagedStreamThatIsDestroyedDropTheirReferences)
{
    Owner first;
    Owner second;
    {
        ManagedFile stream(folder.Name("a"));
        HoldRequests(true);
        EXPECT_NE(stream.WriteAsyncEx(&first, content.data(), 64), nullptr);
        EXPECT_NE(stream.WriteAsyncEx(&second, content.data() + 64, 64, 64), nullptr);
        EXPECT_EQ(first.Count(), 2u);
        EXPECT_EQ(second.Count(), 2u);
        HoldRequests(false); // completions run in waits of this thread alone, and the next one is the destructor's
    }
    EXPECT_EQ(first.Count(), 2u);
    EXPECT_EQ(second.Count(), 2u);
    EXPECT_EQ(folder.Read("a"), content.substr(0, 128)) << "the base waits for them all the same";
    first.Release();
    second.Release();
}

#endif
