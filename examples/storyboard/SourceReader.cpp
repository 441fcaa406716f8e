#include <kvcore/examples/storyboard/SourceReader.h>

#include <algorithm>

#include <kvcore/examples/storyboard/FormatProbe.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/tools/support/Paths.h>

namespace Storyboard
{

SourceContent ReadSource(FoundFile const & file, std::function<void(int)> const & advance)
{
    SourceContent content;
    BasicFileStream input(
        kv::tools::LibraryPath(file.native), FileAccess_Read, FileShare_Read | FileShare_Write | FileShare_Delete,
        FileCreation_OpenExisting, FileAttributes_SequentialScan);
    MD5SumStream sum;
    std::vector<char> buffer(64 * 1024);
    while (int const size = static_cast<int>(input.Read(buffer.data(), static_cast<DWORD>(buffer.size()))))
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
