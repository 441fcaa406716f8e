#include "AttributeIndex.h"

#include <algorithm>

namespace kv::platform
{

namespace
{

char const * Chars(xmlChar const * text)
{
    return reinterpret_cast<char const *>(text);
}

/// Whether `name` is "prefix:local", or "local" without a prefix.
bool IsNamed(std::string_view name, xmlChar const * prefix, std::string_view local)
{
    if (prefix == nullptr)
    {
        return name == local;
    }
    std::string_view const start = Chars(prefix);
    return name.size() == start.size() + 1 + local.size() && name.substr(0, start.size()) == start &&
        name[start.size()] == ':' && name.substr(start.size() + 1) == local;
}

bool IsNamed(std::string_view name, xmlAttr const & attribute)
{
    return IsNamed(name, attribute.ns == nullptr ? nullptr : attribute.ns->prefix, Chars(attribute.name));
}

bool IsNamed(std::string_view name, xmlNs const & declaration)
{
    return declaration.prefix == nullptr ? name == "xmlns" : IsNamed(name, BAD_CAST "xmlns", Chars(declaration.prefix));
}

std::string NameOf(xmlAttr const & attribute)
{
    bool const prefixed = attribute.ns != nullptr && attribute.ns->prefix != nullptr;
    return (prefixed ? Chars(attribute.ns->prefix) + std::string(":") : std::string()) + Chars(attribute.name);
}

std::string NameOf(xmlNs const & declaration)
{
    return declaration.prefix == nullptr ? "xmlns" : std::string("xmlns:") + Chars(declaration.prefix);
}

AttributeIndex::Found FoundIn(xmlAttr const & attribute)
{
    return {&attribute, nullptr};
}

AttributeIndex::Found FoundIn(xmlNs const & declaration)
{
    return {nullptr, declaration.href == nullptr ? BAD_CAST "" : declaration.href};
}

AttributeIndex::Names AllNames(xmlNode const & element)
{
    AttributeIndex::Names names;
    for (xmlNs const * each = element.nsDef; each != nullptr; each = each->next)
    {
        names.emplace_back(NameOf(*each), FoundIn(*each));
    }
    for (xmlAttr const * each = element.properties; each != nullptr; each = each->next)
    {
        names.emplace_back(NameOf(*each), FoundIn(*each));
    }
    std::sort(names.begin(), names.end(), [](auto const & a, auto const & b) { return a.first < b.first; });
    return names;
}

constexpr int most = 16; ///< that are compared one after the other

/// Looks among the first few; `list` is then at the first of the others.
template <typename Entry>
AttributeIndex::Found FindAmongFirst(Entry const *& list, std::string_view name)
{
    for (int left = most; list != nullptr && left > 0; list = list->next, --left)
    {
        if (IsNamed(name, *list))
        {
            return FoundIn(*list);
        }
    }
    return {};
}

} // namespace

AttributeIndex::Found AttributeIndex::Find(xmlNode const & element, std::string_view name)
{
    xmlNs const * declaration = element.nsDef;
    xmlAttr const * attribute = element.properties;
    bool const declares = name.substr(0, 5) == "xmlns";
    if (Found const found = declares ? FindAmongFirst(declaration, name) : FindAmongFirst(attribute, name))
    {
        return found;
    }
    if (declares ? declaration == nullptr : attribute == nullptr)
    {
        return {};
    }
    std::lock_guard const guard(lock);
    auto entry = large.find(&element);
    if (entry == large.end())
    {
        entry = large.emplace(&element, AllNames(element)).first;
    }
    Names const & names = entry->second;
    auto const found = std::lower_bound(
        names.begin(), names.end(), name,
        [](auto const & each, std::string_view sought) { return each.first < sought; });
    return found != names.end() && found->first == name ? found->second : Found();
}

} // namespace kv::platform
