#pragma once

// Texts for a debugger.

#include <kvcore/platform/include/basetypes.h>

extern "C"
{
    /// Gives a text to whoever listens: the receiver that SetDebugReceiver has installed. Without one the text is
    /// dropped, as it is where no debugger is attached. A null text is an empty one. Any thread.
    KVCORE_API void WINAPI OutputDebugStringW(LPCWSTR text);
}

namespace kv::platform
{

/// Takes the texts that are meant for a debugger. Called on the thread that gives the text.
using DebugReceiver = void (*)(WCHAR const * text);

/// Installs a receiver for the process, or none with null. The one that was there before. Any thread.
KVCORE_API DebugReceiver SetDebugReceiver(DebugReceiver receiver) noexcept;

} // namespace kv::platform
