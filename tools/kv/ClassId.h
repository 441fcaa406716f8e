#pragma once

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv classid` was asked for.
struct ClassIdOptions
{
    std::vector<std::string> names; ///< "-" stands for the lines of standard input
    bool strip = true;              ///< drop "class " and "struct "
};

/// Prints the identifier of each class name: hexadecimal, decimal, name. A name that no class can be stored under is
/// reported, and the result is then `ExitFailed`.
[[nodiscard]] int PrintClassIds(ClassIdOptions const & options, Console & console);

} // namespace kv::tools
