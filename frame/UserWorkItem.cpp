#include <kvcore/frame/UserWorkItem.h>

#include <thread>

#include <kvcore/platform/win32.h>

UserWorkItem::UserWorkItem(bool ioThread, bool longFunction, bool)
    : state(StateCreated), onIoThread(ioThread), isLong(longFunction), deletesItself(false)
{
}

UserWorkItem::~UserWorkItem()
{
    // OnEnd is the last that an owner can learn of; what follows it on the pool's thread takes a few instructions.
    while (state.load(std::memory_order_acquire) == StateRunning)
    {
        std::this_thread::yield();
    }
}

void UserWorkItem::OnBegin() {}

void UserWorkItem::OnEnd() {}

namespace kv::detail
{

/// The function that the pool calls, whose calling convention is the system's matter.
struct WorkItemEntry
{
    static DWORD WINAPI Run(LPVOID context)
    {
        UserWorkItem & item = *static_cast<UserWorkItem *>(context);
        item.state.store(UserWorkItem::StateRunning, std::memory_order_relaxed);
        item.OnBegin();
        item.Run();
        item.OnEnd();
        bool const deletesItself = item.deletesItself;
        item.state.store(UserWorkItem::StateFinished, std::memory_order_release);
        // An item that does not delete itself may be gone from here on.
        if (deletesItself)
        {
            delete &item;
        }
        return 0;
    }
};

} // namespace kv::detail

bool UserWorkItem::Queue()
{
    ULONG flags = onIoThread ? WT_EXECUTEINIOTHREAD : WT_EXECUTEDEFAULT;
    flags |= isLong ? WT_EXECUTELONGFUNCTION : 0u;
    state.store(StateQueued, std::memory_order_relaxed); // first: the item may have run before the call returns
    if (!QueueUserWorkItem(kv::detail::WorkItemEntry::Run, this, flags))
    {
        state.store(StateFinished, std::memory_order_relaxed);
        return false;
    }
    return true;
}

UserWorkItem::State UserWorkItem::GetState() const
{
    return static_cast<State>(state.load(std::memory_order_acquire));
}
