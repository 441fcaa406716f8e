#include <kvcore/config/SectionedConfigData.h>

#include <chrono>
#include <cstdint>
#include <cstring>

#include "SectionedConfigStore.h"

namespace kv::detail
{

std::size_t ConfigNameHash::operator()(WString const & name) const noexcept
{
    static std::uint64_t const seed =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
        reinterpret_cast<std::uintptr_t>(&name);
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    auto const * bytes = reinterpret_cast<char const *>(name.data());
    std::size_t left = name.size() * sizeof(WCHAR);
    std::uint64_t hash = seed ^ left;
    auto const mix = [&hash](std::uint64_t word)
    {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    };
    for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t), bytes += sizeof(std::uint64_t))
    {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        mix(word);
    }
    std::uint64_t rest = 0;
    std::memcpy(&rest, bytes, left);
    mix(rest);
    return static_cast<std::size_t>(hash);
}

bool ConfigNameEqual::operator()(WString const & left, WString const & right) const noexcept
{
    return left.size() == right.size() && std::memcmp(left.data(), right.data(), left.size() * sizeof(WCHAR)) == 0;
}

} // namespace kv::detail

kv::detail::ConfigSections::value_type * SectionedConfigData::Implementation::FindSection(String const & section) const
{
    if (last == nullptr || !kv::detail::ConfigNameEqual()(last->first, section))
    {
        auto const found = sections.find(section);
        last = found == sections.end() ? nullptr : const_cast<kv::detail::ConfigSections::value_type *>(&*found);
    }
    return last;
}

String const * SectionedConfigData::Implementation::Find(String const & section, String const & key) const
{
    auto const * const place = FindSection(section);
    if (place == nullptr)
    {
        return nullptr;
    }
    auto const value = place->second.find(key);
    return value == place->second.end() ? nullptr : &value->second;
}

String & SectionedConfigData::Implementation::Place(String const & section, String const & key)
{
    if (FindSection(section) == nullptr)
    {
        last = &*sections.try_emplace(section).first;
    }
    return last->second[key];
}

SectionedConfigData::SectionedConfigData() : implementation(new Implementation) {}

SectionedConfigData::SectionedConfigData(SectionedConfigData const & other)
    : implementation(new Implementation(*other.implementation))
{
}

SectionedConfigData::~SectionedConfigData()
{
    delete implementation;
}

SectionedConfigData & SectionedConfigData::operator=(SectionedConfigData const & other)
{
    if (this != &other)
    {
        implementation->last = nullptr;
        implementation->sections = other.implementation->sections;
    }
    return *this;
}

String const & SectionedConfigData::GetHeader() const
{
    return implementation->header;
}

void SectionedConfigData::SetHeader(String const & header) const
{
    implementation->header = header;
}

// Listing and removing

int SectionedConfigData::GetNumSections() const
{
    return static_cast<int>(implementation->sections.size());
}

int SectionedConfigData::GetNumKeys(String const & section) const
{
    auto const place = implementation->sections.find(section);
    return place == implementation->sections.end() ? 0 : static_cast<int>(place->second.size());
}

void SectionedConfigData::GetSectionNames(std::vector<String> & names) const
{
    names.clear();
    names.reserve(implementation->sections.size());
    for (auto const * const section : kv::detail::InOrder(implementation->sections))
    {
        names.push_back(section->first);
    }
}

bool SectionedConfigData::GetKeyNames(String const & section, std::vector<String> & names) const
{
    auto const place = implementation->sections.find(section);
    if (place == implementation->sections.end())
    {
        return false;
    }
    names.clear();
    names.reserve(place->second.size());
    for (auto const * const entry : kv::detail::InOrder(place->second))
    {
        names.push_back(entry->first);
    }
    return true;
}

void SectionedConfigData::Clear()
{
    implementation->last = nullptr;
    implementation->sections.clear();
}

void SectionedConfigData::ClearSection(String const & section)
{
    implementation->last = nullptr;
    auto const place = implementation->sections.find(section);
    if (place != implementation->sections.end())
    {
        implementation->sections.erase(place);
    }
}

void SectionedConfigData::ClearKey(String const & section, String const & key)
{
    auto const place = implementation->sections.find(section);
    if (place == implementation->sections.end())
    {
        return;
    }
    auto const value = place->second.find(key);
    if (value != place->second.end())
    {
        place->second.erase(value);
    }
    if (place->second.empty())
    {
        implementation->last = nullptr;
        implementation->sections.erase(place);
    }
}

// Texts

bool SectionedConfigData::GetString(String const & section, String const & key, String & value) const
{
    String const * const found = implementation->Find(section, key);
    if (found != nullptr)
    {
        value = *found;
    }
    return found != nullptr;
}

bool SectionedConfigData::SetString(String const & section, String const & key, String const & value)
{
    implementation->Place(section, key) = value;
    return true;
}
