#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Ten stopwatches for the whole process, known by their numbers. They report to the debugger, not to the log.
///
/// Threads: there is no lock. Starting and stopping the same number must not race.
struct KVCORE_API KVPerformanceTimer
{
    char const * name;  ///< borrowed
    char const * label; ///< "END"
    LONGLONG start;     ///< reading of the performance counter

    /// Starts stopwatch `id`. The running one, unchanged, if it runs already; null for an id of 10 and above, or
    /// without memory. `name` has to outlive it.
    static KVPerformanceTimer * StartGlobalTimer(unsigned int id, char const * name);
    /// The running stopwatch `id`, or null.
    static KVPerformanceTimer * GetGlobalTimer(unsigned int id);
    /// Ends stopwatch `id`, if it runs, and sends "PERFTIME   123.456 ms: name END" to the debugger.
    static void StopGlobalTimer(unsigned int id);
};
