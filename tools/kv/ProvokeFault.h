#pragma once

#include <string>
#include <string_view>

namespace kv::tools
{

/// A hardware fault that can be asked for.
struct ProvokedFault
{
    std::string_view kind;
    std::string_view description;
    void (*provoke)();
};

/// All of them.
extern ProvokedFault const provokedFaults[];
extern std::size_t const provokedFaultCount;

} // namespace kv::tools
