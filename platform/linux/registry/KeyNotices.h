#pragma once

// Who waits for changes of the registry.

#include <kvcore/platform/linux/registry/RegistryStore.h>

namespace kv::platform
{

class RegistryKey;

/// A store has changed by a call of this process: sets the events of those who wait for such a change, before the call
/// returns. The registry's lock is held.
void TellNotices(RegistryStore & store, KeyChange const & change) noexcept;

/// A handle is closed: those who wait through it are told. The registry's lock is not held.
void NoticeClose(RegistryKey const & key) noexcept;

/// A forked child has none of its parent's waits.
void ForgetNotices() noexcept;

} // namespace kv::platform
