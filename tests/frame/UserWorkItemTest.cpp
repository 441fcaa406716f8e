#include <kvcore/frame/UserWorkItem.h>

#include <atomic>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/Signals.h>
#include <support/SystemCalls.h>

namespace
{

using kv::test::SystemCalls;

/// Notes down what is called and in which state.
class Item : public UserWorkItem
{
public:
    explicit Item(bool ioThread = false, bool longFunction = false, bool deleteWhenDone = true)
        : UserWorkItem(ioThread, longFunction, deleteWhenDone)
    {
    }
    ~Item() override
    {
        if (destroyed != nullptr)
        {
            destroyed->Give();
        }
    }
    void OnBegin() override
    {
        Note("begin");
    }
    void Run() override
    {
        Note("run");
    }
    void OnEnd() override
    {
        Note("end");
        ended.Give();
    }
    void DeleteAfterwards()
    {
        deletesItself = true;
    }
    int StateNumber() const
    {
        return GetState();
    }

    std::vector<std::string> steps;
    std::vector<DWORD> threads;
    Signals ended;
    Signals * destroyed = nullptr;

private:
    void Note(std::string const & step)
    {
        steps.push_back(step + " " + std::to_string(GetState()));
        threads.push_back(GetCurrentThreadId());
    }
};

struct Kind
{
    bool ioThread;
    bool longFunction;
    ULONG flags;
};

constexpr Kind kinds[] = {{false, false, 0}, {true, false, 1}, {false, true, 16}, {true, true, 17}};

} // namespace

TEST(UserWorkItem, IsDoneOnAThreadOfThePool)
{
    for (Kind const & kind : kinds)
    {
        Item item(kind.ioThread, kind.longFunction);
        EXPECT_EQ(0, item.StateNumber());
        EXPECT_TRUE(item.Queue());
        item.ended.Await();
        EXPECT_EQ((std::vector<std::string>{"begin 2", "run 2", "end 2"}), item.steps);
        EXPECT_NE(GetCurrentThreadId(), item.threads[0]);
        EXPECT_EQ(item.threads[0], item.threads[1]);
        EXPECT_EQ(item.threads[0], item.threads[2]);
    }
}

TEST(UserWorkItem, OperationsThatAreNotOverriddenDoNothing)
{
    struct Plain : UserWorkItem
    {
        int runs = 0;
        void Run() override
        {
            ++runs;
        }
    };
    SystemCalls calls;
    calls.QueueUserWorkItem = [](LPTHREAD_START_ROUTINE function, LPVOID context, ULONG)
    {
        function(context);
        return TRUE;
    };
    Plain plain;
    EXPECT_TRUE(plain.Queue());
    EXPECT_EQ(1, plain.runs);
}

TEST(UserWorkItem, TellsThePoolWhatKindOfJobItIs)
{
    for (Kind const & kind : kinds)
    {
        SystemCalls calls;
        Item item(kind.ioThread, kind.longFunction);
        ULONG given = 99;
        LPTHREAD_START_ROUTINE function = nullptr;
        LPVOID context = nullptr;
        calls.QueueUserWorkItem = [&](LPTHREAD_START_ROUTINE procedure, LPVOID argument, ULONG flags)
        {
            EXPECT_EQ(1, item.StateNumber());
            function = procedure;
            context = argument;
            given = flags;
            return TRUE;
        };
        EXPECT_TRUE(item.Queue());
        EXPECT_EQ(kind.flags, given);
        EXPECT_EQ(1, item.StateNumber());
        EXPECT_TRUE(item.steps.empty());
        EXPECT_EQ(0u, function(context));
        EXPECT_EQ((std::vector<std::string>{"begin 2", "run 2", "end 2"}), item.steps);
        EXPECT_EQ(3, item.StateNumber());
    }
}

TEST(UserWorkItem, ThatThePoolDoesNotTakeIsFinishedAndNotRun)
{
    SystemCalls calls;
    calls.QueueUserWorkItem = [](auto...) { return FALSE; };
    Signals destroyed;
    Item item;
    item.destroyed = &destroyed;
    item.DeleteAfterwards();
    EXPECT_FALSE(item.Queue());
    EXPECT_EQ(3, item.StateNumber());
    EXPECT_TRUE(item.steps.empty());
    EXPECT_FALSE(destroyed.IsGiven());
}

TEST(UserWorkItem, IsNotDeletedWhateverItsConstructorWasGiven)
{
    for (bool const deleteWhenDone : {false, true})
    {
        SystemCalls calls;
        Signals destroyed;
        Item item(false, false, deleteWhenDone);
        item.destroyed = &destroyed;
        calls.QueueUserWorkItem = [&](LPTHREAD_START_ROUTINE procedure, LPVOID argument, ULONG)
        {
            procedure(argument);
            return TRUE;
        };
        EXPECT_TRUE(item.Queue());
        EXPECT_EQ(3, item.StateNumber());
        EXPECT_FALSE(destroyed.IsGiven());
    }
}

TEST(UserWorkItem, MayAskToBeDeletedOnceItIsDone)
{
    Signals destroyed;
    Item * const item = new Item;
    item->destroyed = &destroyed;
    item->DeleteAfterwards();
    EXPECT_TRUE(item->Queue());
    destroyed.Await();
}

TEST(UserWorkItem, MayBeDestroyedAsSoonAsItsEndIsKnown)
{
    for (int i = 0; i < 500; ++i)
    {
        Item item(i % 2 != 0);
        ASSERT_TRUE(item.Queue());
        item.ended.Await();
    }
}

TEST(UserWorkItem, CanBeQueuedInNumbers)
{
    struct Counting : UserWorkItem
    {
        std::atomic<int> * left;
        Signals * done;
        void Run() override
        {
            if (--*left == 0)
            {
                done->Give();
            }
        }
        Counting()
        {
            deletesItself = true;
        }
    };
    std::atomic<int> left{2000};
    Signals done;
    for (int i = 0; i < 2000; ++i)
    {
        auto * const item = new Counting;
        item->left = &left;
        item->done = &done;
        ASSERT_TRUE(item->Queue());
    }
    done.Await();
    EXPECT_EQ(0, left);
}
