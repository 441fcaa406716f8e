#pragma once

#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv info` was asked for.
struct InfoOptions
{
    std::vector<std::string> files;
};

/// Prints what the system knows of files and directories. Those that are not there are reported, and the others still
/// shown; the result is then `ExitFailed`.
[[nodiscard]] int PrintInfo(InfoOptions const & options, Console & console);

/// The attributes of a file in words, "directory, read-only"; "none" if there are none.
[[nodiscard]] std::string AttributeWords(unsigned int attributes);

} // namespace kv::tools
