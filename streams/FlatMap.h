#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace kv::detail
{

/// A hash map from numbers or pointers other than 0 to small values, for look-ups that happen for every object of a
/// graph. Nothing is ever removed. One thread at a time.
template <typename Key, typename Value>
class FlatMap
{
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    /// The value of `key`, or null. Stays valid until the next insertion.
    Value * Find(Key key)
    {
        if (table.empty())
        {
            return nullptr;
        }
        Slot & slot = SlotOf(table, key);
        return slot.key == key ? &slot.value : nullptr;
    }

    /// Sets the value of `key`, which must not be there yet. Running out of memory leaves the map as it was.
    void Insert(Key key, Value value)
    {
        // A quarter stays free: searches end at a free slot.
        if ((count + 1) * 4 > table.size() * 3)
        {
            Grow();
        }
        SlotOf(table, key) = {key, value};
        ++count;
    }

    /// Calls action(value) for every value.
    template <typename Action>
    void ForEach(Action action) const
    {
        for (Slot const & slot : table)
        {
            if (slot.key != Key())
            {
                action(slot.value);
            }
        }
    }

private:
    struct Slot
    {
        Key key;
        Value value;
    };

    static Slot & SlotOf(std::vector<Slot> & within, Key key)
    {
        std::size_t const mask = within.size() - 1;
        std::size_t i = Hash(key) & mask;
        while (within[i].key != Key() && within[i].key != key)
        {
            i = (i + 1) & mask;
        }
        return within[i];
    }

    static std::size_t Hash(Key key)
    {
        std::uint64_t bits = 0;
        if constexpr (std::is_pointer_v<Key>)
        {
            bits = reinterpret_cast<std::uintptr_t>(key);
        }
        else
        {
            bits = static_cast<std::make_unsigned_t<Key>>(key);
        }
        bits *= 0x9E3779B97F4A7C15u;
        return static_cast<std::size_t>(bits >> 32);
    }

    void Grow()
    {
        std::vector<Slot> larger(table.empty() ? 16 : table.size() * 2);
        for (Slot const & slot : table)
        {
            if (slot.key != Key())
            {
                SlotOf(larger, slot.key) = slot;
            }
        }
        table = std::move(larger);
    }

    std::vector<Slot> table;
    std::size_t count = 0;
};

} // namespace kv::detail
