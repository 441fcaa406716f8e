#pragma once

#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv url` was asked for.
struct UrlOptions
{
    std::vector<std::string> texts; ///< paths and URLs
    bool win32 = false;             ///< show paths in the library's form
    bool endsInNul = false;         ///< for programs: as they are, a NUL behind each
};

/// Prints the file URL of each path and the path of each file URL. `ExitFailed` if one has none.
[[nodiscard]] int PrintUrls(UrlOptions const & options, Console & console);

} // namespace kv::tools
