#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/streams/MD5.h>

namespace Storyboard
{

/// What the bytes of a file tell.
struct SourceContent
{
    MD5Sum sum;
    std::int64_t size = 0;           ///< of what was read, whatever the folder says
    std::vector<unsigned char> head; ///< the first bytes, as many as ProbeFormat can use
};

/// Reads a file to its end and calls `advance` with the size of each piece. Throws StreamBase::Exception.
SourceContent ReadSource(FoundFile const & file, std::function<void(int)> const & advance);

} // namespace Storyboard
