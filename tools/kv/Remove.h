#pragma once

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv remove` was asked for.
struct RemoveOptions
{
    std::string directory;
    std::string mask;
    bool directories = false; ///< directories and links to them, too
    bool sure = false;        ///< do not ask
    bool dryRun = false;      ///< list, and remove nothing
};

/// Removes what matches below a directory, which stays itself. Asks before, on a terminal alone. `ExitFailed` if
/// something could not be read or removed, or the answer was no.
[[nodiscard]] int RemoveFiles(RemoveOptions const & options, Console & console);

} // namespace kv::tools
