#include <kvcore/examples/storyboard/SourceReader.h>

#include <algorithm>

#include <kvcore/examples/storyboard/FormatProbe.h>
#include <kvcore/tools/support/StdioStreams.h>

namespace Storyboard
{

SourceContent ReadSource(FoundFile const & file, std::function<void(int)> const & advance)
{
    SourceContent content;
    kv::tools::StdioInputStream input(StoredName(file.native));
    MD5SumStream sum;
    std::vector<char> buffer(64 * 1024);
    while (int const size = input.ReadSome(buffer.data(), static_cast<int>(buffer.size())))
    {
        sum.Write(buffer.data(), size);
        std::size_t const wanted = std::min(probeSize - content.head.size(), static_cast<std::size_t>(size));
        content.head.insert(content.head.end(), buffer.data(), buffer.data() + wanted);
        content.size += size;
        advance(size);
    }
    content.sum = sum.GetMD5Sum();
    return content;
}

} // namespace Storyboard
