#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kv::platform
{

/// How deep the entities of a document refer to each other. The parser calls itself for each level, so a chain must be
/// found before it is followed.
class EntityNesting
{
public:
    static constexpr int deepest = 40;

    /// The first declaration of a name counts.
    void Add(std::string_view name, std::string_view value);
    /// The longest chain, or one more than the deepest that is allowed.
    int Depth();

private:
    struct Entity
    {
        std::vector<std::string> names; ///< that it refers to
        int depth = 0;                  ///< of what it refers to, itself included; 0 as long as that is not known
        bool open = false;
    };
    struct Step
    {
        Entity * entity;
        std::size_t next;
    };
    bool Follow(Entity & start);

    std::map<std::string, Entity, std::less<>> entities;
};

} // namespace kv::platform
