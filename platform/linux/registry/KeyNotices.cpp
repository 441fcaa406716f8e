#include "KeyNotices.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <new>
#include <thread>
#include <vector>

#include <pthread.h>
#include <signal.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/synchapi.h>
#include <kvcore/platform/linux/registry/RegistryKey.h>
#include <kvcore/platform/linux/sync/Events.h>

using namespace kv::platform;

namespace
{

/// How long a change by another process may go unnoticed.
constexpr std::chrono::milliseconds interval(50);
constexpr std::int64_t wholeSubtree = 1 << 20;

/// One wait for a change. Its event lives as long as the wait.
struct Notice
{
    RegistryKey const * key; ///< the handle's object, only compared; null for a predefined root
    std::shared_ptr<RegistryStore> store;
    KeyId id;
    bool subtree;
    DWORD filter;
    Ref<Event> event;
    std::uint64_t changeCount;
    std::string digest;
};

/// All waits, and the thread that looks after them while there are any. Guarded by the registry's lock.
struct Notices
{
    std::vector<Notice> all;
    std::condition_variable changed;
    bool isRunning = false;
};

Notices & Known()
{
    static Notices & notices = *new Notices;
    return notices;
}

std::string RunDigest(RegistryStore & store, Sql which, KeyId id, std::int64_t depth)
{
    Statement statement = store.Use(which);
    return statement.Bind(id).Bind(depth).Step() ? std::string(statement.Bytes(0)) : std::string();
}

/// A text that is another one after each change of the kinds that the notice is for. Empty if the key is gone.
std::string DigestOf(Notice const & notice)
{
    RegistryStore & store = *notice.store;
    FoundKey found;
    if (store.Open() != ERROR_SUCCESS || FindPath(store, notice.id, {}, found) != ERROR_SUCCESS)
    {
        return {};
    }
    std::string digest = "+";
    if ((notice.filter & REG_NOTIFY_CHANGE_NAME) != 0)
    {
        digest += RunDigest(store, Sql::NameDigest, notice.id, notice.subtree ? wholeSubtree : 1);
    }
    digest += '/';
    if ((notice.filter & REG_NOTIFY_CHANGE_LAST_SET) != 0)
    {
        digest += RunDigest(store, Sql::ValueDigest, notice.id, notice.subtree ? wholeSubtree : 0);
    }
    return digest;
}

bool HasChanged(Notice & notice)
{
    if (notice.store->Open() == ERROR_SUCCESS)
    {
        std::uint64_t const count = notice.store->ChangeCount();
        if (count == notice.changeCount)
        {
            return false;
        }
        notice.changeCount = count;
    }
    return DigestOf(notice) != notice.digest;
}

void SetThoseThatChanged()
{
    std::vector<Notice> & all = Known().all;
    auto const changed = std::partition(all.begin(), all.end(), [](Notice & notice) { return !HasChanged(notice); });
    for (auto notice = changed; notice != all.end(); ++notice)
    {
        notice->event->Set();
    }
    all.erase(changed, all.end());
}

void Watch()
{
    Notices & known = Known();
    std::unique_lock lock(RegistryLock());
    while (!known.all.empty())
    {
        known.changed.wait_for(lock, interval);
        SetThoseThatChanged();
    }
    known.isRunning = false;
}

/// The registry's lock is held.
void StartWatching()
{
    Notices & known = Known();
    if (known.isRunning)
    {
        return;
    }
    // Signals are for the threads of the program.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread(Watch).detach();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    known.isRunning = true;
}

LSTATUS Add(HKEY key, bool subtree, DWORD filter, HANDLE event)
{
    auto const pinned = LookUp<Event>(event);
    if (!pinned)
    {
        return ERROR_INVALID_HANDLE;
    }
    KeyUse const use(key, KEY_NOTIFY);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    if (LSTATUS const gone = use.NothingFound(ERROR_SUCCESS); gone != ERROR_SUCCESS)
    {
        return gone;
    }
    Notice notice{use.Object(),
                  use.SharedStore(),
                  use.Id(),
                  subtree,
                  filter,
                  Ref<Event>(pinned.Get()),
                  use.Store().ChangeCount(),
                  {}};
    notice.digest = DigestOf(notice);
    notice.event->Reset();
    Known().all.push_back(std::move(notice));
    StartWatching();
    return ERROR_SUCCESS;
}

} // namespace

namespace kv::platform
{

void NoticeChange() noexcept
{
    if (!Known().all.empty())
    {
        Known().changed.notify_all();
    }
}

void NoticeClose(RegistryKey const & key) noexcept
{
    std::lock_guard const guard(RegistryLock());
    std::vector<Notice> & all = Known().all;
    auto const closed =
        std::partition(all.begin(), all.end(), [&key](Notice const & notice) { return notice.key != &key; });
    for (auto notice = closed; notice != all.end(); ++notice)
    {
        notice->event->Set();
    }
    all.erase(closed, all.end());
}

void ForgetNotices() noexcept
{
    Notices & known = Known();
    known.all.clear();
    new (&known.changed) std::condition_variable; // its waiting thread is not in the child
    known.isRunning = false;
}

} // namespace kv::platform

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous)
try
{
    constexpr DWORD kinds =
        REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY;
    if ((filter & ~kinds) != 0)
    {
        return ERROR_INVALID_PARAMETER;
    }
    if (asynchronous)
    {
        return Add(key, subtree != FALSE, filter, event);
    }
    HANDLE const own = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (own == nullptr)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    LSTATUS const status = Add(key, subtree != FALSE, filter, own);
    if (status == ERROR_SUCCESS)
    {
        WaitForSingleObject(own, INFINITE);
    }
    CloseHandle(own);
    return status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}
