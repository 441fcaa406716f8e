#pragma once

// The process's modules, as the kernel lists them.

#include <climits>
#include <cstddef>
#include <cstdint>

namespace kv::platform
{

struct LoadedModule
{
    std::uint64_t low;
    std::uint64_t high;
    char path[512];
};

class ModuleTable
{
public:
    /// Reads the list. No heap.
    void Fill(char const * list = "/proc/self/maps");

    std::size_t Count() const
    {
        return count;
    }
    LoadedModule const & operator[](std::size_t index) const
    {
        return modules[index];
    }
    /// Modules for which there was no place.
    std::size_t LeftOut() const
    {
        return leftOut;
    }

    /// The module that holds an address, or null.
    LoadedModule const * Find(std::uint64_t address) const;

private:
    void Add(char const * line);

    static constexpr std::size_t most = 384;
    LoadedModule modules[most];
    std::size_t count = 0;
    std::size_t leftOut = 0;
};

} // namespace kv::platform
