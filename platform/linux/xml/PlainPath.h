#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <libxml/tree.h>

namespace kv::platform
{

/// A path of plain steps, such as most are: "a/b", "//p:b//*", "node() | @x". All steps are followed at once in a
/// single walk over the tree, so the time is that of the walk, however often "//" stands in the path. Such a path
/// would have libxml2 take an evaluator that keeps no bounds.
class PlainPath
{
public:
    using Prefixes = std::vector<std::pair<std::string, std::string>>; ///< prefix, URI

    /// Nothing for an expression of another form, and for one that is none.
    static std::optional<PlainPath> Parse(std::string_view expression, Prefixes const & prefixes);

    /// The nodes in document order, or the first of them alone.
    std::vector<xmlNode *> Select(xmlNode & context, xmlDoc & document, bool firstAlone) const;

private:
    enum class Axis
    {
        Child,
        Self,
        Attribute
    };
    enum class Test
    {
        Node,
        Text,
        Comment,
        Instruction,
        AnyName, ///< of `uri` if that is set
        Name
    };
    struct Step
    {
        Axis axis = Axis::Child;
        Test test = Test::Node;
        bool deep = false; ///< "//" stands before it
        std::string name;
        std::optional<std::string> uri; ///< none for a test that has no prefix
    };
    /// The steps of one alternative. Each has a bit for the nodes that it has led to, as has the beginning.
    struct Alternative
    {
        bool absolute = false;
        std::vector<Step> steps;
    };
    using States = std::uint64_t;
    class Parser;
    class Walk;

    static bool Matches(Step const & step, xmlNode const & node);

    std::vector<Alternative> alternatives;
};

} // namespace kv::platform
