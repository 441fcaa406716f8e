#pragma once

// The signals of hardware faults, and who had them before.

#include <csignal>
#include <ucontext.h>

namespace kv::platform
{

/// Takes a fault over. False if it is none of its own, and the handler before has it. Runs in the signal handler.
using FaultHandler = bool (*)(int signal, siginfo_t const & information, ucontext_t & context);

/// Installs `handler` for all signals of hardware faults, once for the process. A signal that a program sends is no
/// fault and does not come here. Any thread.
void InstallFaultHandler(FaultHandler handler);

} // namespace kv::platform
