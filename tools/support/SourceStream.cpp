#include <kvcore/tools/support/SourceStream.h>

namespace kv::tools
{

SourceStream::SourceStream() : InputStream(nullptr) {}

void SourceStream::Read(char * data, int size)
{
    while (size > 0)
    {
        int const delivered = ReadSome(data, size);
        if (delivered == 0)
        {
            throw StreamBase::Exception{5, String(TEXT("Unexpected end of file"))};
        }
        data += delivered;
        size -= delivered;
    }
}

} // namespace kv::tools
