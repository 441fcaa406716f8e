#pragma once

// The order in which the files' requests begin. The pool's lock is held for all of it.

#include "Pool.h"

namespace kv::platform
{

/// Enters a file whose oldest request can begin into the list. Whether it was entered now.
bool MakeReady(Pool & pool, File & file);

/// Takes a file out of the list, wherever it stands.
void MakeUnready(Pool & pool, File & file);

/// The next file of the list, or null.
File * TakeReady(Pool & pool);

/// Adds a request to those of its thread that have not begun, or takes it out.
void LinkToThread(TransferRequest & request);
void UnlinkFromThread(TransferRequest & request);

/// Adds a request to those of its file that have not begun, as part of the last run if it can be.
void Append(RequestQueue & queue, TransferRequest & request);

/// What a worker does at once.
struct Run
{
    TransferRequest * first = nullptr;
    unsigned length = 0;
    bool writing = false;
};

/// As many requests as a run has at most.
constexpr unsigned longestRun = 512;

/// Takes the oldest requests of a file that go together.
Run TakeRun(File & file);

} // namespace kv::platform
