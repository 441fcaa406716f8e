#include <kvcore/config/SectionedConfigData.h>

#include "SectionedConfigStore.h"

String const * SectionedConfigData::Implementation::Find(String const & section, String const & key) const
{
    auto const place = sections.find(section);
    if (place == sections.end())
    {
        return nullptr;
    }
    auto const value = place->second.find(key);
    return value == place->second.end() ? nullptr : &value->second;
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
    implementation->sections = other.implementation->sections;
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
    for (auto const & [name, keys] : implementation->sections)
    {
        names.push_back(name);
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
    for (auto const & [key, value] : place->second)
    {
        names.push_back(key);
    }
    return true;
}

void SectionedConfigData::Clear()
{
    implementation->sections.clear();
}

void SectionedConfigData::ClearSection(String const & section)
{
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
    implementation->sections[section].insert_or_assign(key, value);
    return true;
}
