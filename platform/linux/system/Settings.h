#pragma once

// The environment as far as this layer goes by it.

namespace kv::platform
{

/// The value of an environment variable that names a place: null if there is none, and also in a program that has
/// rights which its caller has not (set-user-ID and the like), for its caller has made the environment. `name` is one
/// of this layer's own.
char const * PlaceSetting(char const * name) noexcept;

} // namespace kv::platform
