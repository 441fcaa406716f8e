#pragma once

#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv sum` was asked for.
struct SumOptions
{
    std::vector<std::string> files; ///< "-" is standard input, and so is no file at all
    SumForm form = SumForm::Hex;
};

/// What `kv sum --check` was asked for.
struct SumCheckOptions
{
    std::vector<std::string> lists;
    bool quiet = false;         ///< no "OK" lines
    bool status = false;        ///< no output; the exit code alone
    bool strict = false;        ///< lines that are no sums fail the check
    bool warn = false;          ///< name each of these lines
    bool ignoreMissing = false; ///< files that do not exist are passed over
};

/// Prints the sums of files. Files that cannot be read are reported, and the others still summed; the result is then
/// `ExitFailed`.
[[nodiscard]] int PrintSums(SumOptions const & options, Console & console);

/// Checks files against lists of sums.
[[nodiscard]] int CheckSums(SumCheckOptions const & options, Console & console);

} // namespace kv::tools
