#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <libxml/tree.h>

namespace kv::platform
{

/// A name taken apart at its colon.
struct QualifiedName
{
    std::string_view prefix;
    std::string_view local;

    /// False for a name whose colons are not where they may be.
    bool Take(std::string_view name);
};

/// Whether an attribute declares a namespace.
bool IsDeclaration(std::string_view attribute);

/// The declarations of namespaces at the place where a document is being built.
class Namespaces
{
public:
    explicit Namespaces(xmlDoc & newDocument) : document(newDocument) {}

    void Open()
    {
        counts.push_back(0);
    }
    void Close();
    /// Takes an attribute that is a declaration, and leaves the others. What is wrong with it, or an empty text.
    std::string Declare(xmlNode & element, std::string_view attribute, char const * uri);
    /// The namespace of a name, null for none. False if its prefix is not declared.
    bool Find(xmlNode & element, QualifiedName const & name, bool isElement, xmlNs *& space);

    /// The same for namespaces of the same URI.
    using Identity = std::string const *;
    Identity IdentityOf(xmlNs const & space);
    std::size_t Count() const
    {
        return declared.size();
    }

private:
    using Prefixes = std::map<std::string, std::vector<xmlNs *>, std::less<>>;

    xmlDoc & document;
    Prefixes prefixes; ///< the declarations of each, the innermost last
    std::vector<Prefixes::iterator> declared;
    std::vector<std::size_t> counts; ///< of declarations, by open element
    std::map<xmlNs const *, Identity> identities;
    std::set<std::string> uris;
    xmlNs * last = nullptr; ///< of the element that is being declared for
    xmlNode const * lastElement = nullptr;
};

} // namespace kv::platform
