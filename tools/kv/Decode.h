#pragma once

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/support/SourceStream.h>

namespace kv::tools
{

/// Undoes `Encode` with the same chain, in constant memory. All data that decodes is written before damage behind it is
/// reported, by `DamagedData`; so is data that ends inside a record of its format. Failures of both streams pass
/// through.
void Decode(std::vector<Stage> const & chain, SourceStream & source, OutputStream & target);

} // namespace kv::tools
