#pragma once

#include <cstring>
#include <map>

#include <kvcore/files/RecursiveLock.h>
#include <kvcore/frame/ObjectServices.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

/// The order of the bytes in memory.
struct GuidLess
{
    bool operator()(GUID const & left, GUID const & right) const
    {
        return std::memcmp(&left, &right, sizeof left) < 0;
    }
};

// The state of the object broker. Both locks come before both maps: an object that is released by its table may still
// call back.
extern RecursiveLock serviceLock;
extern RecursiveLock classLock;
extern std::map<GUID, IUnknown *, GuidLess> services; // each with one reference
extern std::map<GUID, ObjectServices::CreateFunction, GuidLess> classes;

} // namespace kv::detail
