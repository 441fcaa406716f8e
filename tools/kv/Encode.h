#pragma once

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/support/SourceStream.h>

namespace kv::tools
{

/// Passes everything that `source` has through the chain's stages into `target`, in constant memory. Failures of both
/// pass through.
void Encode(std::vector<Stage> const & chain, SourceStream & source, OutputStream & target);

} // namespace kv::tools
