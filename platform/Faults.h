#pragma once

// Hardware faults as C++ exceptions.

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

#ifndef _WIN32
#    include <kvcore/platform/include/faults.h>
#endif

namespace kv::platform
{

/// Makes a C++ exception of a fault, on the thread that it happened on: it throws, and the exception unwinds from the
/// faulting instruction on. The code is that of the record. Must not return.
using FaultTranslator = void (*)(unsigned int code, EXCEPTION_POINTERS * fault);

/// Installs the calling thread's translator and returns the one before it. Null is none, as every thread has from the
/// start: its faults have the platform's default. From then on a bad pointer, a division by zero, an illegal
/// instruction, a break point, a read beyond a mapped file's end and (on Linux) an exhausted stack reach the translator
/// instead. Costs next to nothing after a thread's first call.
///
/// The code that faults must have been compiled with -fnon-call-exceptions, or it must have been called by a function
/// of another translation unit: else the compiler takes the instruction for one that cannot throw, and the program
/// ends. The installed package sets this option, and those that keep accesses through null pointers, for its users.
/// For the same reason a call of a C library function that may meet a bad pointer (`strlen`, `memcpy`) stands in a
/// function of its own, without `try` and without destructors, that the compiler does not expand in place. A fault
/// below a `noexcept` function ends the program, as every exception does there.
///
/// A fault while the calling thread's translator runs reaches the translator again. On Linux a signal handler that was
/// there before the first translator of the process keeps all faults outside the translated ones.
///
/// The C runtime's own `_set_se_translator` is no substitute on Windows: it is never called for this compiler's
/// exceptions.
KVCORE_API FaultTranslator SetFaultTranslator(FaultTranslator translator);

/// Tells the calling thread's crash reports its name: the text that `name` points to at the time of the fault. It stays
/// the caller's, who takes it back with null before it goes. On Windows, where the system writes the reports, this does
/// nothing.
KVCORE_API void SetFaultName(WCHAR const * name) noexcept;

} // namespace kv::platform
