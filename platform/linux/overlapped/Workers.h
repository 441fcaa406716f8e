#pragma once

// The threads that carry requests out. The pool's lock is held for all but `CarryOut`.

#include "Pool.h"

namespace kv::platform
{

/// Makes sure that somebody will see to the requests; false if no thread can be made at all.
bool EnsureWorkers(Pool & pool);

/// Lets a sleeping worker run, if nobody is about to look and there is one.
void WakeWorker(Pool & pool);

/// Carries out one request as far as the kernel goes. Takes no lock.
void CarryOut(TransferRequest & request);

} // namespace kv::platform
