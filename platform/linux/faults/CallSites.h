#pragma once

// What the compiler expects of an instruction.

#include <unwind.h>

namespace kv::platform
{

/// Whether an exception may leave the frame's function at `instruction`. Where not, the C++ runtime ends the program:
/// an instruction that only uses the stack is expected never to throw.
bool MayThrow(_Unwind_Context * frame, _Unwind_Ptr instruction) noexcept;

} // namespace kv::platform
