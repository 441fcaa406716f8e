#include <kvcore/tools/support/SafeFile.h>

#include <string>
#include <system_error>

#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace fs = std::filesystem;

fs::path SafeFile::Followed(fs::path const & path)
{
    constexpr int mostLinks = 40; // as many as systems follow themselves
    fs::path followed = path;
    std::error_code error;
    for (int i = 0; i < mostLinks; ++i)
    {
        fs::path const next = fs::read_symlink(followed, error);
        if (error) // it is not a link, or not there
        {
            break;
        }
        followed = next.is_absolute() ? next : followed.parent_path() / next;
    }
    return followed;
}

bool SafeFile::IsTemporaryName(fs::path const & name)
{
    std::string const bytes = NativeBytes(name);
    return NewFile::IsOwnName(bytes) || NewFile::IsPlatformName(bytes);
}

SafeFile::SafeFile(fs::path const & path)
{
    OutputTarget const target = OpenTarget(path);
    if (target.descriptor >= 0)
    {
        stream = std::make_unique<StdioOutputStream>(OpenDescriptor{target.descriptor, OpenDescriptor::Closed});
        return;
    }
    NewFile::RemoveLeftovers(target.path.parent_path());
    file = std::make_unique<NewFile>(target.path);
    stream = std::make_unique<StdioOutputStream>(OpenDescriptor{file->Descriptor(), OpenDescriptor::Borrowed});
}

SafeFile::~SafeFile() = default;

OutputStream & SafeFile::Stream()
{
    return *stream;
}

void SafeFile::Commit()
{
    stream->Close();
    if (file)
    {
        file->Publish();
    }
}

} // namespace kv::tools
