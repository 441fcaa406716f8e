#pragma once

#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv path` was asked for.
struct PathRuleOptions
{
    std::string rule; ///< the name of a function of File, in any case, with or without its W
    std::vector<std::string> arguments;
    bool native = false; ///< arguments and results that are paths are native ones
};

/// Prints what a rule makes of its arguments. Nothing on the disk is changed. `ExitFailed` if the rule fails; throws
/// UsageError if there is no such rule or it takes other arguments.
[[nodiscard]] int PrintPathRule(PathRuleOptions const & options, Console & console);

/// Prints all rules with their arguments.
[[nodiscard]] int ListPathRules(Console & console);

} // namespace kv::tools
