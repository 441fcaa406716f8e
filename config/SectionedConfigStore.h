#pragma once

// What a SectionedConfigData holds. Internal to its sources.

#include <map>

#include <kvcore/config/SectionedConfigData.h>

namespace kv::detail
{

using ConfigKeys = std::map<String, String, std::less<WString>>;
using ConfigSections = std::map<String, ConfigKeys, std::less<WString>>;

} // namespace kv::detail

struct SectionedConfigData::Implementation
{
    String header;
    kv::detail::ConfigSections sections;

    String const * Find(String const & section, String const & key) const;
};
