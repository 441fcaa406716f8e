#include "PlainPath.h"

#include <algorithm>
#include <iterator>

#include "Tree.h"

namespace kv::platform
{

// Parsing ------------------------------------------------------------------------------------------------------------

class PlainPath::Parser
{
public:
    Parser(std::string_view expression, Prefixes const & known) : rest(expression), prefixes(known) {}

    bool Parse(std::vector<Alternative> & alternatives)
    {
        std::size_t states = 0;
        do
        {
            Alternative alternative;
            if (!ParseAlternative(alternative))
            {
                return false;
            }
            states += alternative.steps.size() + 1;
            alternatives.push_back(std::move(alternative));
        } while (Take("|"));
        SkipBlanks();
        return rest.empty() && states <= sizeof(States) * 8;
    }

private:
    void SkipBlanks()
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    }
    bool Take(std::string_view token)
    {
        SkipBlanks();
        bool const found = rest.substr(0, token.size()) == token;
        rest.remove_prefix(found ? token.size() : 0);
        return found;
    }

    bool ParseAlternative(Alternative & alternative)
    {
        bool deep = Take("//");
        alternative.absolute = deep || Take("/");
        SkipBlanks();
        if (alternative.absolute && !deep && (rest.empty() || rest.front() == '|'))
        {
            return true; // the document
        }
        do
        {
            Step step;
            step.deep = deep;
            if (!ParseStep(step) || (!alternative.steps.empty() && alternative.steps.back().axis == Axis::Attribute))
            {
                return false;
            }
            alternative.steps.push_back(std::move(step));
            deep = Take("//");
        } while (deep || Take("/"));
        return true;
    }

    bool ParseStep(Step & step)
    {
        if (Take("."))
        {
            step.axis = Axis::Self;
            return rest.empty() || (rest.front() != '.' && (rest.front() < '0' || rest.front() > '9'));
        }
        step.axis = Take("@") ? Axis::Attribute : Axis::Child;
        if (Take("*"))
        {
            step.test = Test::AnyName;
            return true;
        }
        return ParseName(step.name) && (IsNext(':') ? ParseLocalName(step) : ParseNodeType(step));
    }

    bool IsNext(char c) const
    {
        return !rest.empty() && rest.front() == c;
    }

    bool ParseName(std::string & name)
    {
        SkipBlanks();
        std::size_t const end = std::min(rest.find_first_of(" \t\r\n/|@*:()[]=<>!+,$'\"&"), rest.size());
        name = rest.substr(0, end);
        rest.remove_prefix(end);
        return xmlValidateNCName(BAD_CAST name.c_str(), 0) == 0;
    }

    /// Behind a prefix.
    bool ParseLocalName(Step & step)
    {
        rest.remove_prefix(1);
        auto const known =
            std::find_if(prefixes.begin(), prefixes.end(), [&](auto const & each) { return each.first == step.name; });
        if (known == prefixes.end())
        {
            return false;
        }
        step.uri = known->second;
        step.test = IsNext('*') ? Test::AnyName : Test::Name;
        rest.remove_prefix(IsNext('*') ? 1 : 0);
        return step.test == Test::AnyName || (!rest.empty() && ParseName(step.name) && !IsNext('('));
    }

    bool ParseNodeType(Step & step)
    {
        if (!Take("("))
        {
            step.test = Test::Name;
            return true;
        }
        static constexpr std::pair<std::string_view, Test> types[] = {
            {"node", Test::Node},
            {"text", Test::Text},
            {"comment", Test::Comment},
            {"processing-instruction", Test::Instruction}};
        auto const type = std::find_if(
            std::begin(types), std::end(types), [&](auto const & each) { return each.first == step.name; });
        if (type == std::end(types) || !Take(")"))
        {
            return false;
        }
        step.test = type->second;
        return true;
    }

    std::string_view rest;
    Prefixes const & prefixes;
};

std::optional<PlainPath> PlainPath::Parse(std::string_view expression, Prefixes const & prefixes)
{
    PlainPath path;
    return Parser(expression, prefixes).Parse(path.alternatives) ? std::optional(std::move(path)) : std::nullopt;
}

// Selecting
// ------------------------------------------------------------------------------------------------------------

bool PlainPath::Matches(Step const & step, xmlNode const & node)
{
    bool const named = node.type == (step.axis == Axis::Attribute ? XML_ATTRIBUTE_NODE : XML_ELEMENT_NODE);
    char const * const uri = named && node.ns != nullptr ? reinterpret_cast<char const *>(node.ns->href) : nullptr;
    switch (step.test)
    {
    case Test::Node:
        return node.type != XML_DTD_NODE && node.type != XML_ENTITY_REF_NODE;
    case Test::Text:
        return node.type == XML_TEXT_NODE || node.type == XML_CDATA_SECTION_NODE;
    case Test::Comment:
        return node.type == XML_COMMENT_NODE;
    case Test::Instruction:
        return node.type == XML_PI_NODE;
    case Test::AnyName:
        return named && (!step.uri || (uri != nullptr && *step.uri == uri));
    case Test::Name:
        return named && (step.uri ? uri != nullptr && *step.uri == uri : uri == nullptr) &&
            step.name == reinterpret_cast<char const *>(node.name);
    }
    return false;
}

/// One walk from one node. A node's states are a bit for each place in the paths that it is a result of.
class PlainPath::Walk
{
public:
    Walk(std::vector<Alternative> const & alternatives, bool absolute, bool newFirstAlone) : firstAlone(newFirstAlone)
    {
        for (Alternative const & alternative : alternatives)
        {
            if (alternative.absolute != absolute)
            {
                continue;
            }
            start |= States(1) << count;
            for (Step const & step : alternative.steps)
            {
                (step.axis == Axis::Child      ? children
                     : step.axis == Axis::Self ? selves
                                               : attributes)
                    .push_back({&step, count});
                deep |= step.deep ? States(1) << count : 0;
                descending |= step.axis == Axis::Child || step.deep ? States(1) << count : 0;
                ++count;
            }
            final |= States(1) << count++;
        }
    }

    std::vector<xmlNode *> From(xmlNode & root)
    {
        if (start == 0)
        {
            return {};
        }
        std::vector<Level> levels{{0, 0}};
        for (xmlNode * node = &root; node != nullptr;)
        {
            Level const level = Enter(*node, levels.back(), node == &root);
            if (firstAlone && !found.empty())
            {
                break;
            }
            xmlNode * const child = MayLead(level) && node->type != XML_ATTRIBUTE_NODE ? ChildOf(*node) : nullptr;
            if (child != nullptr)
            {
                levels.push_back(level);
                node = child;
                continue;
            }
            while (node != &root && node->next == nullptr)
            {
                node = node->parent;
                levels.pop_back();
            }
            node = node == &root ? nullptr : node->next;
        }
        return std::move(found);
    }

private:
    struct Place
    {
        Step const * step;
        unsigned bit; ///< of the nodes that it starts from
    };
    struct Level
    {
        States own;   ///< of the node
        States above; ///< of the node and all that it is in
    };

    static xmlNode * ChildOf(xmlNode const & node)
    {
        bool const hasChildren =
            node.type == XML_ELEMENT_NODE || node.type == XML_DOCUMENT_NODE || node.type == XML_HTML_DOCUMENT_NODE;
        return hasChildren ? node.children : nullptr;
    }

    bool MayLead(Level const & level) const
    {
        return ((level.own & descending) | (level.above & deep)) != 0;
    }

    static bool Has(States states, unsigned bit)
    {
        return (states >> bit & 1) != 0;
    }

    Level Enter(xmlNode & node, Level const & parent, bool isRoot)
    {
        States own = isRoot ? start : 0;
        for (Place const & place : children)
        {
            bool const from = Has(parent.own, place.bit) || (place.step->deep && Has(parent.above, place.bit));
            own |= from && Matches(*place.step, node) ? States(2) << place.bit : 0;
        }
        for (Place const & place : selves) // in the order of the path, for one may follow the other
        {
            bool const from = Has(own, place.bit) || (place.step->deep && Has(parent.above, place.bit));
            own |= from && Matches(*place.step, node) ? States(2) << place.bit : 0;
        }
        Level const level{own, own | parent.above};
        if ((own & final) != 0)
        {
            found.push_back(&node);
        }
        if (!attributes.empty() && node.type == XML_ELEMENT_NODE && !(firstAlone && !found.empty()))
        {
            EnterAttributes(node, level);
        }
        return level;
    }

    void EnterAttributes(xmlNode const & element, Level const & level)
    {
        auto const leads = [&](Place const & place)
        { return Has(level.own, place.bit) || (place.step->deep && Has(level.above, place.bit)); };
        if (std::none_of(attributes.begin(), attributes.end(), leads))
        {
            return;
        }
        for (xmlAttr * each = element.properties; each != nullptr; each = each->next)
        {
            auto & node = *reinterpret_cast<xmlNode *>(each);
            if (std::any_of(
                    attributes.begin(), attributes.end(),
                    [&](Place const & place) { return leads(place) && Matches(*place.step, node); }))
            {
                found.push_back(&node);
            }
        }
    }

    bool const firstAlone;
    unsigned count = 0;
    States start = 0;
    States final = 0;
    States deep = 0;
    States descending = 0;
    std::vector<Place> children;
    std::vector<Place> selves;
    std::vector<Place> attributes;
    std::vector<xmlNode *> found;
};

std::vector<xmlNode *> PlainPath::Select(xmlNode & context, xmlDoc & document, bool firstAlone) const
{
    std::vector<xmlNode *> const above =
        Walk(alternatives, true, firstAlone).From(*reinterpret_cast<xmlNode *>(&document));
    std::vector<xmlNode *> const below = Walk(alternatives, false, firstAlone).From(context);
    std::vector<xmlNode *> all;
    std::set_union(
        above.begin(), above.end(), below.begin(), below.end(), std::back_inserter(all),
        [](xmlNode const * a, xmlNode const * b) { return NodeMark::Of(a).order < NodeMark::Of(b).order; });
    all.resize(firstAlone ? std::min<std::size_t>(all.size(), 1) : all.size());
    return all;
}

} // namespace kv::platform
