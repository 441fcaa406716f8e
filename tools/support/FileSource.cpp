#include <kvcore/tools/support/FileSource.h>

#include <algorithm>
#include <cstring>

namespace kv::tools
{

namespace
{

// A reader of records asks for a few bytes at a time.
constexpr std::size_t bufferSize = 64 * 1024;

} // namespace

FileSource::FileSource(String const & path)
    : file(path, FileAccess_Read, FileShare_Read, FileCreation_OpenExisting, FileAttributes_SequentialScan),
      buffer(bufferSize)
{
}

FileSource::~FileSource() = default;

int FileSource::ReadSome(char * data, int capacity)
{
    std::size_t const wanted = static_cast<std::size_t>(capacity);
    if (next == limit)
    {
        if (wanted >= buffer.size())
        {
            return static_cast<int>(file.Read(data, static_cast<DWORD>(wanted)));
        }
        next = 0;
        limit = file.Read(buffer.data(), static_cast<DWORD>(buffer.size()));
    }
    std::size_t const size = std::min(wanted, limit - next);
    std::memcpy(data, buffer.data() + next, size);
    next += size;
    return static_cast<int>(size);
}

} // namespace kv::tools
