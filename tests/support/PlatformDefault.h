#pragma once

// What becomes of a process whose fault nobody translates.

namespace kv::test
{

/// Takes away what a test's surroundings (a sanitizer, a debugger that the system would start) do about faults. Before
/// the process's first translator.
void HaveThePlatformsDefault();

/// Whether a process ended with this status has met the default's end for a bad pointer.
bool EndedByBadPointer(int status);

} // namespace kv::test
