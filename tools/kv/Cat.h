#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv cat` was asked for.
struct CatOptions
{
    std::vector<std::string> files;
    std::int64_t offset = 0;  ///< of the first byte, in all files as one
    std::int64_t length = -1; ///< of what is written; -1 for all up to the end
};

/// Writes files, one behind the other as one range of bytes, or a part of that. Throws IoFailure.
[[nodiscard]] int PrintFiles(CatOptions const & options, Console & console);

} // namespace kv::tools
