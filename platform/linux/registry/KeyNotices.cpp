#include "KeyNotices.h"

#include <algorithm>
#include <chrono>
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
/// Asks for a wait that lasts beyond its thread, as each does here.
constexpr DWORD threadAgnostic = 0x10000000;

/// One wait for a change. Its event lives as long as the wait.
struct Notice
{
    RegistryKey const * key; ///< the handle's object, only compared; null for a predefined root
    std::shared_ptr<RegistryStore> store;
    KeyId id;
    bool subtree;
    DWORD filter;
    Ref<Event> event;
    std::uint64_t foreignChanges; ///< when the digest was made
    std::string digest;           ///< by which changes of other processes are found
};

/// All waits, and the thread that looks after them while there are any. Guarded by the registry's lock.
struct Notices
{
    std::vector<Notice> all;
    bool isRunning = false;
};

Notices & Known()
{
    static Notices & notices = *new Notices;
    return notices;
}

std::string RunDigest(RegistryStore & store, Sql which, KeyId id, bool subtree)
{
    Statement statement = store.Use(which);
    return statement.Bind(id).Bind(std::int64_t{subtree}).Step() ? std::string(statement.Bytes(0)) : std::string();
}

/// A digest that changes with what the notice is for. Empty if the key is gone.
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
        digest += RunDigest(store, Sql::NameDigest, notice.id, notice.subtree);
    }
    digest += '/';
    if ((notice.filter & REG_NOTIFY_CHANGE_LAST_SET) != 0)
    {
        digest += RunDigest(store, Sql::ValueDigest, notice.id, notice.subtree);
    }
    return digest;
}

/// The end of the key itself is a change of names.
bool TellsEnd(Notice const & notice) noexcept
{
    return (notice.filter & REG_NOTIFY_CHANGE_NAME) != 0;
}

/// Whether another process has changed what the notice is for.
bool HasChangedOutside(Notice & notice)
{
    std::uint64_t count = notice.foreignChanges;
    if (notice.store->Open() == ERROR_SUCCESS)
    {
        count = notice.store->ForeignChangeCount();
        if (count == notice.foreignChanges)
        {
            return false;
        }
    }
    std::string digest = DigestOf(notice);
    bool const hasChanged = digest != notice.digest && (!digest.empty() || TellsEnd(notice));
    notice.digest = std::move(digest);
    notice.foreignChanges = count;
    return hasChanged;
}

/// Sets the events of the notices that `isTold` holds for, and forgets these.
template <class Condition>
void Tell(Condition && isTold)
{
    std::vector<Notice> & all = Known().all;
    auto const told = std::partition(all.begin(), all.end(), [&](Notice & notice) { return !isTold(notice); });
    for (auto notice = told; notice != all.end(); ++notice)
    {
        notice->event->Set();
    }
    all.erase(told, all.end());
}

/// Whether `key` is `above` or stands below it.
bool IsWithin(RegistryStore & store, KeyId key, KeyId above)
{
    // Numbers fall on the way up, but among the initial keys: another program may have bent the way into a circle.
    for (KeyId steps = firstFreeKey; key != above && key != noKey && steps > 0;)
    {
        Statement statement = store.Use(Sql::ParentOf);
        KeyId const parent = statement.Bind(key).Step() ? statement.Number(0) : noKey;
        steps -= parent >= key || key < firstFreeKey ? 1 : 0;
        key = parent;
    }
    return key == above;
}

/// Whether a change by this process is one that a notice is for: of its kinds and in its place, or of its key's end.
bool IsConcerned(Notice & notice, RegistryStore & store, KeyChange const & change)
{
    if (notice.store.get() != &store)
    {
        return false;
    }
    FoundKey found;
    if (change.deletes && FindPath(store, notice.id, {}, found) != ERROR_SUCCESS)
    {
        notice.digest.clear();
        return TellsEnd(notice);
    }
    bool const isInside = change.key == notice.id || (notice.subtree && IsWithin(store, change.key, notice.id));
    if (isInside && (notice.filter & change.kinds) != 0)
    {
        return true;
    }
    if (isInside && change.deletes)
    {
        notice.digest = DigestOf(notice); // without the values of the keys that are gone
    }
    return false;
}

void Watch()
{
    Notices & known = Known();
    std::unique_lock lock(RegistryLock());
    while (!known.all.empty())
    {
        lock.unlock();
        std::this_thread::sleep_for(interval);
        lock.lock();
        try
        {
            Tell(HasChangedOutside);
        }
        catch (std::bad_alloc const &)
        {
            // Looked at again after the interval.
        }
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
    Notice notice{
        use.Object(),
        use.SharedStore(),
        use.Id(),
        subtree,
        filter,
        Ref<Event>(pinned.Get()),
        use.Store().ForeignChangeCount(),
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

void TellNotices(RegistryStore & store, KeyChange const & change) noexcept
try
{
    if (!Known().all.empty())
    {
        Tell([&](Notice & notice) { return IsConcerned(notice, store, change); });
    }
}
catch (std::bad_alloc const &)
{
    // Of a notice whose digest found no memory the old one stays, which tells at the next change.
}

void NoticeClose(RegistryKey const & key) noexcept
{
    std::lock_guard const guard(RegistryLock());
    Tell([&key](Notice const & notice) { return notice.key == &key; });
}

void ForgetNotices() noexcept
{
    Notices & known = Known();
    known.all.clear();
    known.isRunning = false;
}

} // namespace kv::platform

LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous)
try
{
    constexpr DWORD kinds = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES | REG_NOTIFY_CHANGE_LAST_SET |
        REG_NOTIFY_CHANGE_SECURITY | threadAgnostic;
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
