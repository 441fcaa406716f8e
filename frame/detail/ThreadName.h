#pragma once

#include <cstddef>
#include <kvcore/platform/export.h>

#include <kvcore/platform/types.h>

namespace kv::detail
{

/// Elements of a thread's name buffer, its NUL included.
constexpr std::size_t threadNameSize = 256;

/// The calling thread's own buffer for its name in crash reports: zeros until a SEHTryCatchEnabler fills it. It lives
/// as long as the thread. Null without memory, or when the library is not attached.
KVCORE_API WCHAR * ThreadNameBuffer() noexcept;

/// Take and free the thread-local slot in which the buffers are found: the first and last steps of the library's
/// attachment. The calling thread gets its buffer, and loses it.
void AttachThreadNames();
void DetachThreadNames() noexcept;

} // namespace kv::detail
