#include "Namespaces.h"

#include <new>

#include <libxml/tree.h>

namespace kv::platform
{

namespace
{

constexpr std::string_view xmlSpace = "http://www.w3.org/XML/1998/namespace";
constexpr std::string_view declarationSpace = "http://www.w3.org/2000/xmlns/";

std::string WrongDeclaration(std::string_view prefix, std::string_view uri)
{
    if (prefix == "xmlns" || uri == declarationSpace)
    {
        return "The prefix xmlns and its namespace are not to be declared.";
    }
    if ((prefix == "xml") != (uri == xmlSpace))
    {
        return "The prefix xml and its namespace belong to each other alone.";
    }
    if (!prefix.empty() && uri.empty())
    {
        return "The prefix " + std::string(prefix) + " is declared for no namespace.";
    }
    return {};
}

} // namespace

bool QualifiedName::Take(std::string_view name)
{
    std::size_t const colon = name.find(':');
    if (colon == std::string_view::npos)
    {
        local = name;
        return true;
    }
    prefix = name.substr(0, colon);
    local = name.substr(colon + 1);
    return !prefix.empty() && xmlValidateNCName(BAD_CAST std::string(local).c_str(), 0) == 0;
}

bool IsDeclaration(std::string_view attribute)
{
    return attribute.substr(0, 5) == "xmlns" && (attribute.size() == 5 || attribute[5] == ':');
}

void Namespaces::Close()
{
    for (std::size_t left = counts.back(); left != 0; --left)
    {
        declared.back()->second.pop_back();
        declared.pop_back();
    }
    counts.pop_back();
}

std::string Namespaces::Declare(xmlNode & element, std::string_view attribute, char const * uri)
{
    if (!IsDeclaration(attribute))
    {
        return {};
    }
    std::string const prefix(attribute.size() == 5 ? std::string_view() : attribute.substr(6));
    std::string wrong = WrongDeclaration(prefix, uri);
    if (wrong.empty() && attribute.size() > 5 && xmlValidateNCName(BAD_CAST prefix.c_str(), 0) != 0)
    {
        wrong = "The colons in the name " + std::string(attribute) + " do not part a prefix from a name.";
    }
    if (!wrong.empty() || prefix == "xml")
    {
        return wrong;
    }
    xmlNs * const space = xmlNewNs(nullptr, BAD_CAST uri, prefix.empty() ? nullptr : BAD_CAST prefix.c_str());
    if (space == nullptr)
    {
        throw std::bad_alloc();
    }
    last = lastElement == &element ? last : nullptr;
    lastElement = &element;
    (last == nullptr ? element.nsDef : last->next) = space;
    last = space;
    auto const entry = prefixes.try_emplace(prefix).first;
    entry->second.push_back(space);
    declared.push_back(entry);
    ++counts.back();
    return {};
}

bool Namespaces::Find(xmlNode & element, QualifiedName const & name, bool isElement, xmlNs *& space)
{
    space = nullptr;
    if (name.prefix.empty() && !isElement)
    {
        return true;
    }
    if (name.prefix == "xml")
    {
        space = xmlSearchNs(&document, &element, BAD_CAST "xml");
        return space != nullptr;
    }
    auto const found = prefixes.empty() ? prefixes.end() : prefixes.find(name.prefix);
    if (found == prefixes.end() || found->second.empty())
    {
        return name.prefix.empty();
    }
    xmlNs * const innermost = found->second.back();
    space = *innermost->href == '\0' ? nullptr : innermost;
    return true;
}

Namespaces::Identity Namespaces::IdentityOf(xmlNs const & space)
{
    Identity & identity = identities[&space];
    if (identity == nullptr)
    {
        identity = &*uris.insert(reinterpret_cast<char const *>(space.href)).first;
    }
    return identity;
}

} // namespace kv::platform
