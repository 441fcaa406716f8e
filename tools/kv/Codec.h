#pragma once

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv encode` and `kv decode` were asked for. An empty path or "-" is the standard stream.
struct CodecOptions
{
    std::vector<Stage> chain;
    std::string input;
    std::string output;
};

/// Encodes the input into the output. Throws the exceptions of Failures.h.
void RunEncode(CodecOptions const & options, Console & console);

/// Decodes the input into the output. Damage is reported on the error stream, and the result is then `ExitDamaged`;
/// what was good before it has been written unless the output is a file, which is left as it was. Throws the other
/// exceptions of Failures.h.
[[nodiscard]] int RunDecode(CodecOptions const & options, Console & console);

} // namespace kv::tools
