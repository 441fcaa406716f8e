#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <libxml/tree.h>

namespace kv::platform
{

/// Attributes and declarations of namespaces by their names, as they stand in a start tag. The first few of an element
/// are compared one after the other; those of elements with many are put in order at the first question. Any thread.
class AttributeIndex
{
public:
    struct Found
    {
        xmlAttr const * attribute = nullptr;
        xmlChar const * uri = nullptr; ///< of a declaration

        explicit operator bool() const
        {
            return attribute != nullptr || uri != nullptr;
        }
    };
    using Names = std::vector<std::pair<std::string, Found>>;

    Found Find(xmlNode const & element, std::string_view name);

private:
    std::mutex lock;
    std::map<xmlNode const *, Names> large;
};

} // namespace kv::platform
