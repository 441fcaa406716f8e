#pragma once

// Which class objects a thread sees: those of its apartment.

#include <cstdint>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// Names an apartment for as long as it is there, and no other afterwards.
using ApartmentId = std::uint64_t;

/// A thread that is in none, while nobody is in the shared one.
constexpr ApartmentId noApartment = 0;

/// The calling thread's.
ApartmentId CurrentApartment() noexcept;

/// Drops the class objects that were registered in an apartment that ends.
void RevokeClassObjectsOf(ApartmentId apartment) noexcept;

} // namespace kv::platform
