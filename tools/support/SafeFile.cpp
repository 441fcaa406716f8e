#include <kvcore/tools/support/SafeFile.h>

#include <random>
#include <system_error>
#include <utility>

#include <kvcore/files/File.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace fs = std::filesystem;

namespace
{

/// Makes an empty file of a name that nobody has.
String MakeTemporary(String const & folder)
{
    std::random_device random;
    for (;;)
    {
        String const path = File::MakePath(
            folder, String::FromFormat(TEXT("save-%08x%08x.tmp"), unsigned(random()), unsigned(random())));
        try
        {
            BasicFileStream const made(
                path, FileAccess_Write, FileShare_None, FileCreation_CreateNew, FileAttributes_Normal);
            return path;
        }
        catch (BasicFileStream::Exception const & failure)
        {
            if (failure.error != ERROR_FILE_EXISTS)
            {
                throw;
            }
        }
    }
}

/// Nobody may read of the new file what he may not read of the old one, not even while it is written.
void TakePermissions(fs::path const & from, String const & to)
{
    std::error_code error;
    fs::perms const permissions = fs::status(from, error).permissions();
    if (!error && fs::exists(from, error))
    {
        fs::permissions(NativePath(to), permissions, error);
    }
}

} // namespace

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

SafeFile::SafeFile(fs::path const & path)
    : targetPath(EndOfLinks(path)),
      target(LibraryPath(targetPath)),
      temporary(MakeTemporary(File::GetDirname(File::GetFullPath(target)))),
      stream(nullptr)
{
    try
    {
        stream = new FileOutputStream(temporary, false);
        TakePermissions(targetPath, temporary);
    }
    catch (...)
    {
        Discard();
        throw;
    }
}

SafeFile::~SafeFile()
{
    if (!committed)
    {
        Discard();
    }
}

OutputStream & SafeFile::Stream()
{
    return *stream;
}

void SafeFile::Discard() noexcept
{
    try
    {
        delete std::exchange(stream, nullptr);
    }
    catch (...)
    {
        // What could not be written is not wanted any more.
    }
    File::DeleteFileW(temporary);
}

void SafeFile::Commit()
{
    // Its destructor writes what it still holds, waits for the disk and tells a failure.
    delete std::exchange(stream, nullptr);
    // Replacing keeps what belongs to the file beside its bytes; not every file system can.
    if (File::FileExists(target) && ReplaceFileW(target.c_str(), temporary.c_str(), nullptr, 0, nullptr, nullptr))
    {
        committed = true;
        return;
    }
    if (!MoveFileExW(temporary.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    {
        throw BasicFileStream::Exception(GetLastError());
    }
    committed = true;
}

} // namespace kv::tools
