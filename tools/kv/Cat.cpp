#include <kvcore/tools/kv/Cat.h>

#include <algorithm>

#include <kvcore/files/MultiFileStream.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace
{

void Add(BasicMultiFileStream & range, std::string const & file)
{
    try
    {
        range.AddFile(TypedPath(file));
    }
    catch (BasicFileStream::Exception const & failure)
    {
        throw IoFailure(failure, "cannot open " + file);
    }
}

/// The file that holds a byte of the range, for messages.
std::string NameAt(CatOptions const & options, BasicMultiFileStream const & range)
{
    return options.files.size() == 1 ? options.files.front()
                                     : "the range of " + std::to_string(range.GetSize()) + " bytes";
}

} // namespace

int PrintFiles(CatOptions const & options, Console & console)
{
    BasicMultiFileStream range(
        FileAccess_Read, FileShare_Read | FileShare_Write | FileShare_Delete, FileCreation_OpenExisting,
        FileAttributes_SequentialScan, false);
    for (std::string const & file : options.files)
    {
        Add(range, file);
    }
    NamedOutput output("-", console);
    std::vector<char> buffer(256 * 1024);
    std::int64_t left = options.length < 0 ? range.GetSize() : options.length;
    try
    {
        range.SetPosition(options.offset);
    }
    catch (BasicFileStream::Exception const & failure)
    {
        throw IoFailure(failure, "cannot go to byte " + std::to_string(options.offset));
    }
    while (left > 0)
    {
        DWORD const wanted = static_cast<DWORD>(std::min<std::int64_t>(left, static_cast<std::int64_t>(buffer.size())));
        DWORD done = 0;
        try
        {
            done = range.Read(buffer.data(), wanted);
        }
        catch (BasicFileStream::Exception const & failure)
        {
            throw IoFailure(failure, "cannot read " + NameAt(options, range));
        }
        if (done == 0)
        {
            break;
        }
        output.Write(buffer.data(), static_cast<int>(done));
        left -= done;
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
