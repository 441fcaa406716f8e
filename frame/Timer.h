#pragma once

#include <kvcore/platform/export.h>

/// What a timer calls.
class KVCORE_API ITimerTarget
{
public:
    /// The time of the timer has come. Called on the system's timer thread, which all timers of the process share: an
    /// exception that leaves this ends the process, and what takes long here makes other timers late.
    virtual void OnTimer(unsigned int timerId) = 0;

protected:
    ITimerTarget() = default;
    ITimerTarget(ITimerTarget const &) = default;
    ITimerTarget & operator=(ITimerTarget const &) = default;
    ~ITimerTarget() = default;
};

/// Starts a timer that calls `target` after `delay` milliseconds, once or, if it is `periodic`, again and again; with a
/// null `target` it passes unheard. The timer may be up to `resolution` milliseconds late; 0 is as exact as can be.
///
/// Gives the timer's number; 0 on failure, which a `delay` of 0 is, and one longer than the system's longest (1,000
/// seconds; under Wine 65). A call may come before this returns. The target must live until KVKillTimer has returned.
/// Any thread.
KVCORE_API unsigned int KVSetTimer(unsigned int resolution, unsigned int delay, ITimerTarget * target, bool periodic);

/// Ends a timer. A number that is no timer's does nothing. OnTimer is not being called any more, for this timer, when
/// this returns, and is not called again; so a lock that OnTimer waits for must not be held meanwhile. OnTimer itself
/// may end its own timer and others. Any thread.
KVCORE_API void KVKillTimer(unsigned int id);
