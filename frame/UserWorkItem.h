#pragma once

#include <atomic>
#include <cstdint>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{
struct WorkItemEntry;
}

/// A job that is done once, on a thread of the system's pool, to derive from.
/// ~~~cpp
/// class Thumbnail : public UserWorkItem
/// {
///     void Run() override; // reduces the picture
/// };
/// ~~~
/// The object must live until the job is done. A derived class that has no lock of its own shares nothing with the
/// owner until then: its operations run on the pool's thread, one after the other. An exception that leaves them is not
/// caught and ends the process.
class KVCORE_API UserWorkItem
{
protected:
    /// An item that was destroyed by its owner as soon as OnEnd told him of the end waits here until the pool has let
    /// go of it. Does not wait for a run that is still to come.
    virtual ~UserWorkItem();

public:
    /// Called before Run. Does nothing.
    virtual void OnBegin();
    /// The job.
    virtual void Run() = 0;
    /// Called after Run. Does nothing.
    virtual void OnEnd();

    /// Hands the item to the pool. False if the system does not take it: it then counts as finished, and nothing of it
    /// runs. Once is enough; an item must not be queued again before it is done.
    bool Queue();

protected:
    /// With `ioThread`, the job runs on a thread that waits alertably after it and lives on, so that it may leave
    /// asynchronous requests behind. With `longFunction`, the pool expects the job to take its time, and lets no other
    /// wait behind it.
    ///
    /// Kept: `deleteWhenDone` is not looked at, since many items that were constructed without arguments live on a
    /// stack or in their owner. An item that is to delete itself sets `deletesItself`.
    explicit UserWorkItem(bool ioThread = false, bool longFunction = false, bool deleteWhenDone = true);
    UserWorkItem(UserWorkItem const &) = delete;
    UserWorkItem & operator=(UserWorkItem const &) = delete;

    /// How far the item has come.
    enum State : std::uint32_t
    {
        StateCreated = 0,
        StateQueued = 1,
        StateRunning = 2,
        StateFinished = 3, ///< or not taken by the pool
    };
    State GetState() const;

private:
    friend struct kv::detail::WorkItemEntry;

    std::atomic<std::uint32_t> state;
    bool const onIoThread;
    bool const isLong;

protected:
    /// Whether the item is deleted, by its destructor, after it has run; for items made with `new`. False at first. To
    /// be set before the item is queued, or by the item's own operations.
    bool deletesItself;
};
