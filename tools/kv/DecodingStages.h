#pragma once

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/support/SourceStream.h>

#include <memory>
#include <string>

namespace kv::tools
{

/// Makes the stream that undoes one stage: the library's stream of that format, which delivers all that is asked for or
/// throws, behind a look-ahead at the bytes that it will read, which tells how much may be asked for. It ends where the
/// data below ends, if that is a boundary of the format; everything else is `DamagedData`.
///
/// `below` must live longer; `origin` says in messages whose bytes are counted: "the input".
[[nodiscard]] std::unique_ptr<SourceStream>
MakeDecodingStage(StageKind kind, SourceStream & below, std::string const & origin);

} // namespace kv::tools
