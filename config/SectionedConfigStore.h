#pragma once

// What a SectionedConfigData holds. Internal to its sources.
//
// Values are read and set far more often than they are listed: names are hashed, and what lists them sorts them.

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kvcore/config/SectionedConfigData.h>

namespace kv::detail
{

/// Differs between runs, since names come from files and could be chosen to collide.
struct ConfigNameHash
{
    std::size_t operator()(WString const & name) const noexcept;
};

struct ConfigNameEqual
{
    bool operator()(WString const & left, WString const & right) const noexcept;
};

template <class Value>
using ConfigMap = std::unordered_map<String, Value, ConfigNameHash, ConfigNameEqual>;
using ConfigKeys = ConfigMap<String>;
using ConfigSections = ConfigMap<ConfigKeys>;

/// The entries in the order of their names' units.
template <class Value>
std::vector<std::pair<String const, Value> const *> InOrder(ConfigMap<Value> const & map)
{
    std::vector<std::pair<String const, Value> const *> entries;
    entries.reserve(map.size());
    for (auto const & entry : map)
    {
        entries.push_back(&entry);
    }
    std::sort(
        entries.begin(), entries.end(),
        [](auto const * left, auto const * right) { return std::less<WString>()(left->first, right->first); });
    return entries;
}

} // namespace kv::detail

struct SectionedConfigData::Implementation
{
    String header;
    kv::detail::ConfigSections sections;
    /// The section that was last found; whoever removes sections forgets it. Programs ask for one after the other.
    mutable kv::detail::ConfigSections::value_type * last = nullptr;

    Implementation() = default;
    Implementation(Implementation const & other) : header(other.header), sections(other.sections) {}

    kv::detail::ConfigSections::value_type * FindSection(String const & section) const;
    String const * Find(String const & section, String const & key) const;
    /// The value's place, made if it is missing.
    String & Place(String const & section, String const & key);
};
