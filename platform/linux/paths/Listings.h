#pragma once

// Which of a directory's names a given name means when it is not there as it is spelled.

#include <cstddef>
#include <cstdint>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// Looks in the native directory for a name that differs from `name` only in case, or whose short form it is. Of
/// several, the one whose bytes come first. Writes it and its length over `found`, which holds 256 bytes. Gives 0 or an
/// errno value: ENOENT if there is none, ENOTDIR if there is no such directory.
///
/// Listings are kept, and trusted while the directory's identity and times stay the same. Any thread.
int FindInDirectory(
    char const * directory, char const * name, std::size_t count, char (&found)[256], std::size_t & length) noexcept;

/// Whether no other name of the directory has this short form. False as well if that cannot be told.
bool IsShortNameUnique(char const * directory, char const * name, std::size_t count) noexcept;

/// For tests: what may be kept, and after how many nanoseconds without a change a directory is; and what is kept now.
struct ListingBounds
{
    std::size_t listings = 128;
    std::size_t names = 200'000;
    /// A directory changed so lately may change again without its times showing it: the kernel's clock for them ticks
    /// every few milliseconds, and other machines' file systems more slowly.
    std::int64_t settleTime = 2'000'000'000;
};
struct KeptListings
{
    std::size_t listings;
    std::size_t names;
};
KVCORE_API void SetListingBounds(ListingBounds const & bounds) noexcept;
KVCORE_API KeptListings CountKeptListings() noexcept;

} // namespace kv::platform
