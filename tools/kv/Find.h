#pragma once

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv find` was asked for.
struct FindOptions
{
    std::string directory;
    std::string mask = "*";
    bool tabs = false;      ///< machine-readable lines
    bool endsInNul = false; ///< paths alone, a NUL behind each
    bool total = false;     ///< the sums on standard error
    bool win32 = false;     ///< Win32 paths
};

/// Lists what is below a directory. `ExitFailed` if something could not be read.
[[nodiscard]] int FindFiles(FindOptions const & options, Console & console);

/// What `kv size` was asked for.
struct SizeOptions
{
    std::vector<std::string> paths;
    bool tabs = false; ///< machine-readable lines
};

/// Sums up files and what is below directories, a line for each path. `ExitFailed` if something could not be read.
[[nodiscard]] int PrintSizes(SizeOptions const & options, Console & console);

} // namespace kv::tools
