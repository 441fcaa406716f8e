#include <kvcore/examples/storyboard/ProjectFile.h>

#include <system_error>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/tools/support/CountingStreams.h>
#include <kvcore/tools/support/FileSource.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/SafeFile.h>

namespace Storyboard
{

namespace fs = std::filesystem;
using kv::tools::CountingInputStream;
using kv::tools::CountingOutputStream;

ProjectSizes WriteProject(Project const & project, OutputStream & target)
{
    ProjectSizes sizes;
    CountingOutputStream file(target);
    {
        CRCOutputStream checksummed(file);
        CountingOutputStream compressed(checksummed);
        {
            CompressingStream compressing(compressed, -1);
            CountingOutputStream plain(compressing);
            SerializingOutputStream graph(ProjectFactory(), plain);
            graph.Write(project);
            sizes.graph = static_cast<std::int64_t>(plain.Count());
        }
        sizes.compressed = static_cast<std::int64_t>(compressed.Count());
    }
    sizes.file = static_cast<std::int64_t>(file.Count());
    return sizes;
}

namespace
{

[[noreturn]] void FailBehindTheEnd()
{
    throw StreamBase::Exception{3, TEXT("Data behind the end of project")};
}

/// Reads the compressed data's own end. The graph does not tell where it lies: a reader must ask for one byte too many.
void ExpectCompressedEnd(DecompressingStream & compressed)
{
    try
    {
        char excess;
        compressed.Read(&excess, 1);
    }
    catch (StreamBase::Exception const & failure)
    {
        // zlib's word for a good end, after the sum of all data was compared.
        if (failure.code == 2 && failure.text == TEXT("stream end"))
        {
            return;
        }
        throw;
    }
    FailBehindTheEnd();
}

/// The blocks and the file must end where the compressed data do.
void ExpectFileEnd(kv::tools::SourceStream & file, CRCInputStream & blocks)
{
    char excess;
    if (file.ReadSome(&excess, 1) != 0)
    {
        FailBehindTheEnd();
    }
    try
    {
        blocks.Read(&excess, 1);
    }
    catch (StreamBase::Exception const &)
    {
        return; // with the file at its end, only a block's own rest could have been delivered
    }
    FailBehindTheEnd();
}

} // namespace

LoadedProject ReadProject(kv::tools::SourceStream & source, IObjectFactory const & factory)
{
    LoadedProject loaded;
    CountingInputStream file(source);
    CRCInputStream checked(file);
    CountingInputStream compressed(checked);
    DecompressingStream decompressing(compressed);
    CountingInputStream plain(decompressing);
    ProjectInputStream graph(factory, plain);

    loaded.project = Ptr<Project>::Make();
    graph.Read(*loaded.project);
    ExpectCompressedEnd(decompressing);
    ExpectFileEnd(source, checked);

    loaded.sharing = graph.Statistics();
    loaded.sizes.graph = static_cast<std::int64_t>(plain.Count());
    loaded.sizes.compressed = static_cast<std::int64_t>(compressed.Count());
    loaded.sizes.file = static_cast<std::int64_t>(file.Count());
    return loaded;
}

void CheckSaveTarget(fs::path const & file)
{
    std::error_code error;
    fs::path const target = kv::tools::SafeFile::Followed(file);
    fs::file_status const status = fs::status(target, error);
    if (fs::exists(status) && !fs::is_regular_file(status))
    {
        // A device must not be replaced by a file either.
        throw SystemFailure(TEXT_CANNOT_MAKE, file, Text(TEXT_NO_REGULAR_FILE));
    }
    fs::path const folder = fs::absolute(target).parent_path();
    if (!fs::is_directory(folder, error))
    {
        throw SystemFailure(TEXT_CANNOT_MAKE, file, Text(TEXT_NO_FOLDER));
    }
}

ProjectSizes SaveProject(Project const & project, fs::path const & file)
{
    CheckSaveTarget(file);
    try
    {
        kv::tools::SafeFile saved(file);
        ProjectSizes const sizes = WriteProject(project, saved.Stream());
        saved.Commit();
        return sizes;
    }
    catch (StreamBase::Exception const & failure)
    {
        throw SystemFailure(TEXT_CANNOT_WRITE, file, failure.text.Utf8());
    }
}

namespace
{

/// The message, with what a user can make of the failure.
std::string WithHint(std::string const & message, StreamBase::Exception const & failure)
{
    if (failure.code == 6)
    {
        return Text(TEXT_NEWER, message);
    }
    return failure.text == TEXT("Illegal CRC block size") ? Text(TEXT_IS_IT_OURS, message) : message;
}

} // namespace

LoadedProject LoadProject(fs::path const & file)
{
    try
    {
        kv::tools::FileSource stream(kv::tools::LibraryPath(file));
        return ReadProject(stream);
    }
    catch (StreamBase::Exception const & failure)
    {
        constexpr int fileError = 1;
        if (failure.code == fileError)
        {
            throw SystemFailure(TEXT_CANNOT_READ, file, failure.text.Utf8());
        }
        std::string const message =
            Text(TEXT_DAMAGED, Printable(StoredName(file)), failure.text.Utf8(), std::to_string(failure.code));
        throw Failure{kv::tools::ExitDamaged, WithHint(message, failure)};
    }
}

} // namespace Storyboard
