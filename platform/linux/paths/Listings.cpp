#include "Listings.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "DirectoryReader.h"
#include "NativeNames.h"
#include "ShortNames.h"

namespace kv::platform
{

namespace
{

constexpr std::size_t longestName = 255;

struct Stamp
{
    dev_t device;
    ino_t inode;
    std::int64_t modified;
    std::int64_t changed;

    bool operator==(Stamp const &) const = default;
};

std::int64_t Nanoseconds(timespec const & time)
{
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Stamp StampOf(struct stat const & status)
{
    return {status.st_dev, status.st_ino, Nanoseconds(status.st_mtim), Nanoseconds(status.st_ctim)};
}

std::atomic<std::int64_t> settleTime{ListingBounds().settleTime};

bool HasSettled(Stamp const & stamp)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    std::int64_t const latest = std::max(stamp.modified, stamp.changed);
    return Nanoseconds(now) - latest > settleTime.load(std::memory_order_relaxed);
}

/// Names by their folded form. A short form that two names have means neither.
struct Listing
{
    Stamp stamp;
    std::unordered_map<std::string, std::string> names;
    std::unordered_map<std::string, std::string> shortForms;
};

/// The short form of a native name, or "" if it needs none.
std::string ShortFormOf(char const * name, std::size_t count)
{
    WCHAR units[longestName];
    std::size_t const length = DecodeName(name, count, units);
    if (IsShortName(units, length))
    {
        return {};
    }
    WCHAR made[shortNameSize];
    std::size_t const size = MakeShortName(units, length, made);
    return std::string(made, made + size);
}

void Add(Listing & listing, char const * name, std::size_t count)
{
    auto const [at, fresh] = listing.names.try_emplace(FoldedKey(name, count), name, count);
    if (!fresh && std::string_view(name, count) < at->second)
    {
        at->second.assign(name, count);
    }
    if (std::string const shortForm = ShortFormOf(name, count); !shortForm.empty())
    {
        auto const [known, first] = listing.shortForms.try_emplace(shortForm, name, count);
        if (!first)
        {
            known->second.clear();
        }
    }
}

/// The listings used last, the latest first.
class Cache
{
public:
    std::shared_ptr<Listing const> Get(Stamp const & stamp)
    {
        std::lock_guard const guard(mutex);
        auto const found = std::find_if(
            listings.begin(), listings.end(),
            [&](auto const & listing)
            { return listing->stamp.device == stamp.device && listing->stamp.inode == stamp.inode; });
        if (found == listings.end())
        {
            return nullptr;
        }
        if (!((*found)->stamp == stamp))
        {
            names -= (*found)->names.size();
            listings.erase(found);
            return nullptr;
        }
        listings.splice(listings.begin(), listings, found);
        return listings.front();
    }

    void Put(std::shared_ptr<Listing const> listing)
    {
        std::lock_guard const guard(mutex);
        // Another thread may have read the same directory meanwhile.
        std::erase_if(
            listings,
            [&](auto const & other)
            {
                bool const same =
                    other->stamp.device == listing->stamp.device && other->stamp.inode == listing->stamp.inode;
                names -= same ? other->names.size() : 0;
                return same;
            });
        names += listing->names.size();
        listings.push_front(std::move(listing));
        Trim();
    }

    void SetBounds(ListingBounds const & newBounds)
    {
        std::lock_guard const guard(mutex);
        bounds = newBounds;
        Trim();
    }

    KeptListings Count()
    {
        std::lock_guard const guard(mutex);
        return {listings.size(), names};
    }

private:
    /// The listing used last stays, however many names it has.
    void Trim()
    {
        while (listings.size() > bounds.listings || (names > bounds.names && listings.size() > 1))
        {
            names -= listings.back()->names.size();
            listings.pop_back();
        }
    }

    std::mutex mutex;
    ListingBounds bounds;
    std::list<std::shared_ptr<Listing const>> listings;
    std::size_t names = 0;
};

/// Never destroyed: files are looked up by the destructors of other statics, too.
Cache & TheCache()
{
    static Cache & cache = *new Cache;
    return cache;
}

class Directory
{
public:
    explicit Directory(char const * path) : descriptor(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    Directory(Directory const &) = delete;
    Directory & operator=(Directory const &) = delete;
    ~Directory()
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }

    int const descriptor;
};

/// The directory's kept listing, or a new one; null with an errno value in `error`.
std::shared_ptr<Listing const> ListingOf(char const * path, Stamp const & stamp, int & error)
{
    if (std::shared_ptr<Listing const> known = TheCache().Get(stamp))
    {
        return known;
    }
    Directory const directory(path);
    auto const listing = std::make_shared<Listing>();
    struct stat status;
    if (directory.descriptor < 0 || fstat(directory.descriptor, &status) != 0)
    {
        error = errno;
        return nullptr;
    }
    listing->stamp = StampOf(status);
    error = ReadDirectory(
        directory.descriptor,
        [&](char const * name, std::size_t count)
        {
            if (count <= longestName)
            {
                Add(*listing, name, count);
            }
            return true;
        });
    if (error != 0)
    {
        return nullptr;
    }
    if (HasSettled(listing->stamp))
    {
        TheCache().Put(listing);
    }
    return listing;
}

/// The look-up in a directory that changes too often to be listed: compares as it reads.
int Scan(char const * path, char const * name, std::size_t count, char (&found)[256], std::size_t & length)
{
    Directory const directory(path);
    if (directory.descriptor < 0)
    {
        return errno;
    }
    length = 0;
    int const error = ReadDirectory(
        directory.descriptor,
        [&](char const * candidate, std::size_t size)
        {
            if (size <= longestName && EqualIgnoringCase(name, count, candidate, size) &&
                (length == 0 || std::string_view(candidate, size) < std::string_view(found, length)))
            {
                std::memcpy(found, candidate, size);
                length = size;
            }
            return true;
        });
    return error == 0 && length == 0 ? ENOENT : error;
}

int Lookup(
    std::unordered_map<std::string, std::string> const & names, std::string const & key, char (&found)[256],
    std::size_t & length)
{
    auto const at = names.find(key);
    if (at == names.end() || at->second.empty())
    {
        return ENOENT;
    }
    length = at->second.size();
    std::memcpy(found, at->second.data(), length);
    return 0;
}

} // namespace

int FindInDirectory(
    char const * directory, char const * name, std::size_t count, char (&found)[256], std::size_t & length) noexcept
try
{
    struct stat status;
    if (stat(directory, &status) != 0)
    {
        return errno == ENOENT ? ENOTDIR : errno;
    }
    Stamp const stamp = StampOf(status);
    bool const shortForm = MayBeMadeShort(name, count);
    if (!shortForm && !HasSettled(stamp))
    {
        return Scan(directory, name, count, found, length);
    }
    int error = 0;
    std::shared_ptr<Listing const> const listing = ListingOf(directory, stamp, error);
    if (!listing)
    {
        return error;
    }
    std::string const key = FoldedKey(name, count);
    error = Lookup(listing->names, key, found, length);
    return error != 0 && shortForm ? Lookup(listing->shortForms, key, found, length) : error;
}
catch (std::bad_alloc const &)
{
    return ENOMEM;
}

bool IsShortNameUnique(char const * directory, char const * name, std::size_t count) noexcept
try
{
    struct stat status;
    int error = 0;
    if (count > longestName || stat(directory, &status) != 0)
    {
        return false;
    }
    std::shared_ptr<Listing const> const listing = ListingOf(directory, StampOf(status), error);
    if (!listing)
    {
        return false;
    }
    std::string const shortForm = ShortFormOf(name, count);
    auto const at = listing->shortForms.find(shortForm);
    // A real name that looks like the made-up one wins every look-up.
    return at != listing->shortForms.end() && !at->second.empty() &&
        listing->names.find(FoldedKey(shortForm.data(), shortForm.size())) == listing->names.end();
}
catch (std::bad_alloc const &)
{
    return false;
}

void SetListingBounds(ListingBounds const & bounds) noexcept
{
    settleTime.store(bounds.settleTime, std::memory_order_relaxed);
    TheCache().SetBounds(bounds);
}

KeptListings CountKeptListings() noexcept
{
    return TheCache().Count();
}

} // namespace kv::platform
