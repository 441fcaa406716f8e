// Directory entries read from any bytes: whatever the record says, its names end and its values are plain numbers.

#include <kvcore/files/FileFinder.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string const bytes(reinterpret_cast<char const *>(data), size);
    MemoryInputStream stream(bytes.data(), static_cast<int>(bytes.size()));
    FileData record;
    try
    {
        stream >> record;
    }
    catch (StreamBase::Exception const & failure)
    {
        fuzz::Check(size < sizeof(FileData), "a whole record does not read");
        fuzz::Check(failure.code == 5, "a record that is cut off fails with another code");
        return 0;
    }
    fuzz::Check(size >= sizeof(FileData), "a record that is cut off reads");
    fuzz::Check(std::memcmp(&record, data, sizeof(record)) == 0, "a record is not what was stored");

    String const name = record.GetFileName();
    fuzz::Check(name.size() <= 260, "a name goes beyond its field");
    fuzz::Check(record.GetShortFileName().size() <= 14, "a short name goes beyond its field");
    String const extension = record.GetFileExtension();
    fuzz::Check(
        extension.empty() || (extension[0] == '.' && name.EndsWith(extension)), "an extension is not the name's");
    fuzz::Check(!record.IsDots() || record.IsDirectory(), "a file is taken for a folder's dots");
    FileData const copy = record;
    fuzz::Check(copy == record, "a record differs from its copy");

    MemoryOutputStream written;
    written << record;
    fuzz::Check(written.GetContent().size() == sizeof(FileData), "a record is not written in its size");
    return 0;
}
