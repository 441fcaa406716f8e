#pragma once

// The kernel's list of what lies where in this process (/proc/self/maps), read once and looked into often.

#include <cstddef>
#include <cstdint>

namespace kv::platform
{

/// A line of the list.
struct MappedPages
{
    std::uintptr_t begin;
    std::uintptr_t end;
    bool readable : 1;
    bool writable : 1;
    bool executable : 1;
    bool shared : 1;
    bool ofFile : 1;
};

/// One reading of the list. Uses no memory of the heap, so that it can be made when that is damaged.
class AddressSpace
{
public:
    AddressSpace() noexcept = default;
    ~AddressSpace();
    AddressSpace(AddressSpace const &) = delete;
    AddressSpace & operator=(AddressSpace const &) = delete;

    /// Reads the list anew. False, with errno set and the list empty, if the system does not give it.
    bool Read() noexcept;
    void Clear() noexcept;

    MappedPages const * begin() const noexcept
    {
        return pages;
    }
    MappedPages const * end() const noexcept
    {
        return pages + count;
    }
    /// The first line whose end lies beyond `address`.
    MappedPages const * Find(std::uintptr_t address) const noexcept;

private:
    bool Grow() noexcept;
    bool Add(char const * line, char const * lineEnd) noexcept;
    bool ReadLines(int descriptor) noexcept;

    MappedPages * pages = nullptr;
    std::size_t count = 0;
    std::size_t room = 0;
};

} // namespace kv::platform
