#include "EntityNesting.h"

#include <algorithm>

namespace kv::platform
{

void EntityNesting::Add(std::string_view name, std::string_view value)
{
    if (entities.find(name) != entities.end())
    {
        return;
    }
    Entity & entity = entities[std::string(name)];
    for (std::size_t at = 0; (at = value.find('&', at)) != std::string_view::npos;)
    {
        std::size_t const end = value.find(';', ++at);
        if (end == std::string_view::npos)
        {
            return;
        }
        if (value[at] != '#')
        {
            entity.names.emplace_back(value.substr(at, end - at));
        }
        at = end;
    }
    std::sort(entity.names.begin(), entity.names.end());
    entity.names.erase(std::unique(entity.names.begin(), entity.names.end()), entity.names.end());
}

/// False if a chain from there is too long. A circle ends where it meets itself: the parser refuses it there.
bool EntityNesting::Follow(Entity & start)
{
    std::vector<Step> path{{&start, 0}};
    start.open = true;
    while (!path.empty())
    {
        Step & step = path.back();
        if (step.next < step.entity->names.size())
        {
            auto const found = entities.find(step.entity->names[step.next++]);
            bool const isNew = found != entities.end() && found->second.depth == 0 && !found->second.open;
            if (isNew)
            {
                found->second.open = true;
                path.push_back({&found->second, 0});
            }
            if (static_cast<int>(path.size()) + (found == entities.end() ? 0 : found->second.depth) > deepest)
            {
                return false;
            }
            continue;
        }
        int below = 0;
        for (std::string const & name : step.entity->names)
        {
            auto const found = entities.find(name);
            below = std::max(below, found == entities.end() ? 0 : found->second.depth);
        }
        step.entity->depth = below + 1;
        step.entity->open = false;
        path.pop_back();
    }
    return start.depth <= deepest;
}

int EntityNesting::Depth()
{
    int depth = 0;
    for (auto & [name, entity] : entities)
    {
        if (entity.depth == 0 && !Follow(entity))
        {
            return deepest + 1;
        }
        depth = std::max(depth, entity.depth);
    }
    return depth;
}

} // namespace kv::platform
