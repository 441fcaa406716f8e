#pragma once

// The file behind a profile: found, read, kept in memory while it stays as it is, and replaced in one step.

#include <mutex>
#include <variant>

#include "ProfileText.h"

namespace kv::platform
{

/// A profile's text in the units of its file.
using ProfileContent = std::variant<ProfileText<char>, ProfileText<char16_t>>;

/// Guards all that is kept in memory; every profile call holds it.
std::mutex & ProfileLock() noexcept;

/// The profile of a name, null for the system's own, read anew unless it is known to be unchanged. Null with the last
/// error set. It lives until the next call of these functions.
ProfileContent const * ReadProfile(WString const * fileName);

/// A change to a profile: false if there is nothing to change.
class ProfileChange
{
public:
    virtual bool Apply(ProfileText<char> & text) = 0;
    virtual bool Apply(ProfileText<char16_t> & text) = 0;

protected:
    ~ProfileChange() = default;
};

/// Reads, changes and replaces a profile while no other process does. With `create` a missing file is made; without, it
/// needs no change. False with the last error set, and the file as it was.
bool ChangeProfile(WString const * fileName, bool create, ProfileChange & change);

/// Forgets what is kept in memory.
void ForgetProfiles() noexcept;

} // namespace kv::platform
