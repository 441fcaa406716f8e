#pragma once

#include <vector>

#include <kvcore/platform/export.h>

// The order in which the library's process-wide objects come and go, for those who have to prove it.

namespace kv::detail
{

/// A point between two static objects: passed when what stands above it has been made, and again, backwards, before
/// that is destroyed.
class StartLandmark
{
public:
    explicit StartLandmark(char const * landmarkName);
    StartLandmark(StartLandmark const &) = delete;
    StartLandmark & operator=(StartLandmark const &) = delete;
    ~StartLandmark();

private:
    char const * name;
};

/// The landmarks passed since the library was loaded, in that order.
KVCORE_API std::vector<char const *> StartedObjects();

/// Has `observer` called at each landmark that is passed while the library is unloaded; null for none.
KVCORE_API void ObserveStop(void (*observer)(char const * name));

} // namespace kv::detail
