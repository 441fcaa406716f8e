#pragma once

// The threads that carry requests out. The pool's lock is held for all but `Hurry`.

#include "Pool.h"

namespace kv::platform
{

/// Somebody waits: no worker is to let writes gather. One that begins to at this very moment may miss it, and does so
/// for a fraction of a millisecond.
void Hurry(Pool & pool);

/// Makes sure that somebody will see to the requests; false if no thread can be made at all.
bool EnsureWorkers(Pool & pool);

/// Lets a sleeping worker run, if nobody is about to look and there is one.
void WakeWorker(Pool & pool);

/// Carries out one request as far as the kernel goes. Takes no lock.
void CarryOut(TransferRequest & request);

} // namespace kv::platform
