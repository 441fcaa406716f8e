#pragma once

#include <atomic>
#include <map>

#include <kvcore/frame/Timer.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Holds system parameters at wanted values while a task runs, to keep a screen saver out of a long recording for
/// example: applies them, applies them again at an interval in case somebody has changed them, and puts the earlier
/// values back at the end.
/// ~~~cpp
/// SysParamWatcher watcher;
/// watcher.SetParamToWatch(SPI_SETSCREENSAVEACTIVE, SPI_GETSCREENSAVEACTIVE, 0);
/// watcher.StartWatching(false);
/// ...                             // the recording
/// watcher.StopWatching();         // or the destructor
/// ~~~
/// A parameter is named by its two SystemParametersInfoW actions, and has to be one whose value travels in that call's
/// second argument. No call reports a failure: what the system refuses stays as it is.
///
/// For the owner's thread, while values are applied on the timer's. There is no lock: the list is changed between
/// StopWatching and StartWatching, or by RemoveParamFromWatchlist, which ends the timer first.
class KVCORE_API SysParamWatcher : public ITimerTarget
{
protected:
    /// Applies the values if `timerId` is the watcher's own timer.
    void OnTimer(unsigned int timerId) override;

public:
    /// Nothing to watch, an interval of 10 seconds, not watching.
    SysParamWatcher();
    /// Puts the saved values back if it watches. Ends a timer that runs without watching, too.
    virtual ~SysParamWatcher();
    SysParamWatcher(SysParamWatcher const &) = delete;
    SysParamWatcher & operator=(SysParamWatcher const &) = delete;

    /// How often the values are applied. From now on if it watches, otherwise from the next start.
    void SetUpdateInterval(unsigned int seconds);

    /// Puts a parameter on the list, with its present value as the one to go back to; replaces an entry of the same two
    /// actions. Applies nothing yet.
    void SetParamToWatch(unsigned int setAction, unsigned int getAction, unsigned int value);

    /// Takes all entries with that set action off the list, and puts their saved values back if it watches.
    ///
    /// Kept: the timer runs afterwards in any case. A watcher that was not watching applies its values at each interval
    /// from then on, though IsWatching() stays false; StopWatching ends it.
    void RemoveParamFromWatchlist(unsigned int setAction);

    /// Applies the values and keeps applying them. With `saveCurrent`, reads the values to go back to first: for a
    /// start after they have changed since SetParamToWatch. A start while it watches takes false: else the wanted
    /// values are read as those to go back to.
    void StartWatching(bool saveCurrent);

    /// The same as RestoreDefaults.
    void StopWatching();

    /// Ends watching and puts the saved values back. The list stays, so that watching can start again.
    void RestoreDefaults();

    /// Sets the wanted values, for the user's whole system and lastingly.
    void ApplyValues();

    /// Reads the values to go back to.
    void SaveCurrentSystemValues();

    bool IsWatching() const;

private:
    struct Values
    {
        DWORD wanted;
        DWORD saved;
    };

    void StopTimer();
    void StartTimer();

    /// By the set action in the upper half, as a signed number, and the get action in the lower.
    std::map<__int64, Values> parameters;
    /// 0 while there is none. Written by the owner while the timer may be calling already.
    std::atomic<unsigned int> timer;
    unsigned int interval;
    bool watching;
};
