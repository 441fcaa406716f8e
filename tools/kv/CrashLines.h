#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kv::tools
{

/// What the source's spelling of the names in one line of a report may take, as it is estimated. A linker's name can
/// refer to parts of itself, so that a few hundred characters of it stand for gigabytes.
constexpr std::size_t mostSourceNames = std::size_t{4} << 20;

/// About the greatest length of what a linker's name (_Z...) can stand for; more than `mostSourceNames` if it is far
/// longer.
[[nodiscard]] std::size_t EstimateExpansion(std::string_view linkerName);

/// A line of a crash report with the linker's names in it as the source spells them. Those that would take too much
/// stay as they are.
[[nodiscard]] std::string WithSourceNames(std::string const & line);

} // namespace kv::tools
