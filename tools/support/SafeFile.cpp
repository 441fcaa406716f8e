#include <kvcore/tools/support/SafeFile.h>

#include <random>
#include <string_view>
#include <system_error>

#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>
#include <kvcore/platform/PrivateFiles.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace fs = std::filesystem;

namespace
{

constexpr std::string_view savePrefix = ".kvsave-";
constexpr std::string_view platformPrefix = ".kv-";
constexpr std::string_view suffix = ".tmp";

bool IsTemporary(std::string_view name, std::string_view prefix)
{
    constexpr std::size_t digits = 16;
    return name.size() == prefix.size() + digits + suffix.size() && name.starts_with(prefix) &&
        name.ends_with(suffix) &&
        name.substr(prefix.size(), digits).find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

/// Removes what saves that were killed have left. A save that goes on has its file open, so that it cannot be opened
/// here for its own.
void RemoveLeftovers(String const & folder)
{
    FileFinder finder;
    for (bool found = finder.Start(File::MakePath(folder, TEXT(".kvsave-*.tmp")), false); found; found = finder.Next())
    {
        if (finder.IsDirectory() || finder.IsLink() || !IsTemporary(finder.GetFileName().Utf8(), savePrefix))
        {
            continue;
        }
        HANDLE const left = CreateFileW(
            finder.GetFilePath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (left != INVALID_HANDLE_VALUE)
        {
            CloseHandle(left);
            File::DeleteFileW(finder.GetFilePath());
        }
    }
}

/// A name that nobody has, or as good as.
String TemporaryName(String const & folder)
{
    std::random_device random;
    return File::MakePath(
        folder, String::FromFormat(TEXT(".kvsave-%08x%08x.tmp"), unsigned(random()), unsigned(random())));
}

/// The rights of the old file, or those of any new one.
void TakePermissions(fs::path const & from, String const & to)
{
    std::error_code error;
    fs::file_status const old = fs::status(from, error);
    kv::platform::GiveUsualRights(to);
    if (fs::exists(old))
    {
        fs::permissions(NativePath(to), old.permissions(), error);
    }
}

} // namespace

/// The new file. It is open until it has its final name, so that nobody takes it for left over, and lets itself be
/// renamed meanwhile.
class SafeFile::Temporary final : public OutputStream, public BufferedFileStream
{
public:
    explicit Temporary(String const & newPath)
        : OutputStream(nullptr),
          BufferedFileStream(
              newPath, FileAccess_Write, FileShare_Read | FileShare_Write | FileShare_Delete, FileCreation_CreateNew,
              FileAttributes(FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_SEQUENTIAL_SCAN))
    {
    }

    using BufferedFileStream::Write;
    void Write(char const * data, int size) override
    {
        if (size > 0)
        {
            BufferedFileStream::Write(data, static_cast<DWORD>(size));
        }
    }
    void Flush() override
    {
        OutputStream::Flush();
    }
    void FlushSelf() override
    {
        BufferedFileStream::Flush();
    }
};

fs::path SafeFile::Followed(fs::path const & path)
{
    constexpr int mostLinks = 40; // as many as systems follow themselves
    fs::path followed = path;
    std::error_code error;
    for (int i = 0; i < mostLinks; ++i)
    {
        fs::path const next = fs::read_symlink(followed, error);
        if (error) // it is no link, or not there
        {
            break;
        }
        followed = next.is_absolute() ? next : followed.parent_path() / next;
    }
    return followed;
}

namespace
{

/// Followed; throws if that can be no file: a link that leads round in a circle, or a directory, which some systems
/// would move out of the way.
fs::path EndOfLinks(fs::path const & path)
{
    fs::path const end = SafeFile::Followed(path);
    std::error_code error;
    fs::file_status const status = fs::symlink_status(end, error);
    if (fs::is_symlink(status) || fs::is_directory(status))
    {
        throw BasicFileStream::Exception(fs::is_symlink(status) ? ERROR_CANT_RESOLVE_FILENAME : ERROR_ACCESS_DENIED);
    }
    return end;
}

} // namespace

bool SafeFile::IsTemporaryName(fs::path const & name)
{
    std::u8string const text = name.u8string();
    std::string_view const bytes(reinterpret_cast<char const *>(text.data()), text.size());
    return IsTemporary(bytes, savePrefix) || IsTemporary(bytes, platformPrefix);
}

SafeFile::SafeFile(fs::path const & path)
    : targetPath(EndOfLinks(path)),
      target(LibraryPath(targetPath)),
      temporary(TemporaryName(File::GetDirname(File::GetFullPath(target)))),
      stream(std::make_unique<Temporary>(temporary))
{
    RemoveLeftovers(File::GetDirname(temporary));
}

SafeFile::~SafeFile()
{
    if (!committed)
    {
        stream->Close();
        File::DeleteFileW(temporary);
    }
}

OutputStream & SafeFile::Stream()
{
    return *stream;
}

void SafeFile::Commit()
{
    stream->FlushSelf();
    // Replacing keeps what belongs to the file beside its bytes; not every file system can.
    if (!File::FileExists(target) || !ReplaceFileW(target.c_str(), temporary.c_str(), nullptr, 0, nullptr, nullptr))
    {
        TakePermissions(targetPath, temporary);
        if (!MoveFileExW(temporary.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        {
            throw BasicFileStream::Exception(GetLastError());
        }
    }
    committed = true;
    stream->Close();
}

} // namespace kv::tools
