#pragma once

// How the functions of SystemCalls.h come between the library and the system; for each system in its own way.

namespace kv::test
{

/// Puts the calls in their places; once, before the first of them.
void InstallReplacedCalls();

} // namespace kv::test
