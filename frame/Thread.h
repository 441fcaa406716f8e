#pragma once

#include <kvcore/core/NotCopyable.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{
struct ThreadEntry;
}

/// A thread as code sees it that starts and awaits work without knowing what the work is.
class KVCORE_API IKVThread
{
public:
    /// The system's numbers for a thread's priority, which are handed to it as they are.
    enum Priority
    {
        PriorityIdle = -15,
        PriorityLowest = -2,
        PriorityBelowNormal = -1,
        PriorityNormal = 0,
        PriorityAboveNormal = 1,
        PriorityHighest = 2,
        PriorityTimeCritical = 15,
    };

    /// Runs the work on a new thread. False if the system makes none.
    virtual bool start(Priority priority) = 0;
    /// Waits for the end of the work, INFINITE (0xFFFFFFFF) being as long as it takes. True if no work is going on,
    /// false if the time was over.
    virtual bool waitForEnd(DWORD milliseconds) const = 0;
    /// Whether work is going on.
    virtual bool isRunning() const = 0;
    /// Changes the priority of the thread that runs the work.
    virtual void setPriority(Priority priority) = 0;
    /// The work. Called on the new thread.
    virtual void run() = 0;

protected:
    // Whoever knows a thread by this interface alone does not own it.
    IKVThread() = default;
    IKVThread(IKVThread const &) = default;
    IKVThread & operator=(IKVThread const &) = default;
    ~IKVThread() = default;
};

/// Work on a thread of its own, to derive from. One thread at a time, any number of them in sequence: `start`,
/// `waitForEnd`, `start` again.
/// ~~~cpp
/// class Import : public Thread
/// {
///     void run() override; // reads the files
/// };
///
/// Import import;
/// import.start(IKVThread::PriorityBelowNormal);
/// ...
/// import.waitForEnd(INFINITE);
/// ~~~
/// The object must outlive its thread, and a `waitForEnd` that succeeded must precede its destruction: the destructor
/// neither waits nor closes the thread's handle, which would leak.
///
/// An exception that leaves `run` is not caught and ends the process; a class whose work may fail catches what it
/// throws.
///
/// `start`, `waitForEnd`, `isRunning` and `setPriority` are for the owner's thread. There is no lock: of two threads
/// that wait for one object the first to see the end closes the handle under the other. What `run` shares with the
/// owner is for the two of them to guard.
class KVCORE_API Thread : public virtual NotCopyable, public virtual IKVThread
{
public:
    Thread();
    virtual ~Thread();

    /// If the earlier thread still runs, waits for its end without limit. Then starts a new one, which has `priority`
    /// from its first step on.
    bool start(Priority priority) override;
    /// A wait that ends otherwise than by the time being over closes the handle, so that a query which finds the thread
    /// at its end is what makes the object forget it.
    bool waitForEnd(DWORD milliseconds) const override;
    /// waitForEnd(0) the other way round: false for an object that was never started.
    bool isRunning() const override;
    /// Does nothing while there is no thread: `start` has a priority of its own.
    void setPriority(Priority priority) override;

protected:
    /// Called on the new thread with true before `run` and with false after it. Does nothing.
    virtual void init(bool starting);

private:
    friend struct kv::detail::ThreadEntry;

    mutable HANDLE handle;
};
