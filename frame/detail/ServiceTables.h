#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <map>

#include <kvcore/files/RecursiveLock.h>
#include <kvcore/frame/ObjectServices.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

/// The order of the bytes in memory, as memcmp has it; here in two halves, which takes half the time.
struct GuidLess
{
    bool operator()(GUID const & left, GUID const & right) const
    {
        std::uint64_t const first = Half(left, 0);
        std::uint64_t const second = Half(right, 0);
        return first != second ? first < second : Half(left, 8) < Half(right, 8);
    }

private:
    /// Eight bytes as a number whose first byte counts most.
    static std::uint64_t Half(GUID const & id, std::size_t at)
    {
        std::uint64_t half;
        std::memcpy(&half, reinterpret_cast<char const *>(&id) + at, sizeof half);
        static_assert(std::endian::native == std::endian::little);
        return __builtin_bswap64(half);
    }
};

// The state of the object broker. Both locks come before both maps: an object that is released by its table may still
// call back.
extern RecursiveLock serviceLock;
extern RecursiveLock classLock;
extern std::map<GUID, IUnknown *, GuidLess> services; // each with one reference
extern std::map<GUID, ObjectServices::CreateFunction, GuidLess> classes;

} // namespace kv::detail
