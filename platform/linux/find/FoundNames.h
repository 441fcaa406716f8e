#pragma once

// The names of one directory that match a mask, in the order in which they are found.

#include <cstdint>
#include <string>
#include <vector>

#include "NameMask.h"

namespace kv::platform
{

class FoundNames
{
public:
    /// Reads an open directory. Gives 0 or an errno value. Throws std::bad_alloc.
    int Read(int descriptor, NameMask const & mask);

    /// Adds one name at the end. `name` ends in a NUL. Throws std::bad_alloc.
    void Add(char const * name, std::size_t count);

    std::size_t Count() const noexcept
    {
        return entries.size();
    }
    /// The name, ended by a NUL.
    char const * Name(std::size_t index) const noexcept
    {
        return text.data() + entries[index].name;
    }

private:
    struct Entry
    {
        std::size_t name;
        std::size_t key;     ///< the folded name, ended by a NUL
        std::uint64_t start; ///< the key's first eight bytes, which settle most comparisons
    };

    std::string text;
    std::vector<Entry> entries;
};

} // namespace kv::platform
