// Directories: those that are made, those that the system has for a purpose, and whole trees.

#include <kvcore/files/File.h>

#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/files/FileFinder.h>
#include <kvcore/files/FolderSteps.h>
#include <kvcore/files/PathRules.h>

#include <kvcore/platform/HeldFolder.h>
#include <kvcore/platform/win32.h>

#include <algorithm>
#include <vector>

using kv::detail::IsEmptyText;
using kv::detail::separator;

namespace
{

// Where the first directory that may have to be made stands in a whole path: behind the drive or the server.
std::size_t AfterDriveOrServer(String const & path)
{
    if (path.size() >= 3 && path[1] == ':' && path[2] == separator)
    {
        return 3;
    }
    if (path.size() >= 2 && path[0] == separator && path[1] == separator)
    {
        std::size_t const server = path.find(separator, 2);
        return server == String::npos ? path.size() : server + 1;
    }
    return 0;
}

// Somebody else may have made it meanwhile, and drives and shares cannot be made at all.
bool MakeDirectory(String const & path)
{
    return ::CreateDirectoryW(path.c_str(), nullptr) || File::IsDirectory(path);
}

} // namespace

bool File::CreatePath(String const & path)
{
    if (IsDirectory(path))
    {
        return true;
    }
    String const full = GetFullPath(path);
    std::size_t const start = AfterDriveOrServer(full);
    if (start >= full.size())
    {
        return false;
    }
    for (std::size_t end = full.find(separator, start); end != String::npos; end = full.find(separator, end + 1))
    {
        if (!MakeDirectory(full.Left(static_cast<unsigned int>(end))))
        {
            return false;
        }
    }
    return MakeDirectory(full);
}

String File::GetTempDirectory()
{
    DWORD const room = ::GetTempPathW(0, nullptr);
    if (room == 0)
    {
        return String();
    }
    kv::detail::ScratchBuffer<WCHAR, MAX_PATH> buffer(room + std::size_t(1));
    DWORD const length = ::GetTempPathW(room + 1, buffer.Data());
    // The environment may have become longer in between.
    return length == 0 || length > room ? String() : GetFullPath(String(buffer.Data(), length));
}

namespace
{

// Kept: this is the only folder that is ever asked for, see GetSpecialFolderPath.
String ApplicationData(HWND owner, bool create)
{
    WCHAR buffer[MAX_PATH];
    return ::SHGetSpecialFolderPathW(owner, buffer, CSIDL_APPDATA, create) ? String(buffer) : String();
}

} // namespace

String File::GetApplicationDataDirectory()
{
    return ApplicationData(nullptr, true);
}

String File::GetSpecialFolderPath(int /* folder */, bool create, HWND owner)
{
    return ApplicationData(owner, create);
}

String File::GetTempFilePath(String const & dir)
{
    String const directory = dir.empty() ? GetTempDirectory() : dir;
    WCHAR buffer[MAX_PATH];
    return ::GetTempFileNameW(directory.c_str(), TEXT("TMP"), 0, buffer) != 0 ? String(buffer) : String();
}

namespace
{

class DeleteFilesCallback : public FileFinder::IFindCallback
{
public:
    bool OnFile(String const & directory, String const & name) override
    {
        String const path = File::MakePath(directory, name);
        // A link to a directory is a directory here, and what is removed is the link.
        return File::IsDirectory(path) ? File::RemoveDirectoryW(path) : File::DeleteFileW(path);
    }
};

/// A folder in which something is deleted: it is held, so that nobody can lead the deletion elsewhere by a link in its
/// place.
struct DeletionFolder
{
    kv::platform::HeldFolder held;
    String typed; ///< the path that the caller knows

    explicit operator bool() const
    {
        return static_cast<bool>(held);
    }
    String Path() const
    {
        return held.Path();
    }
    String Pattern(String const & mask) const
    {
        // A rooted mask searches where the typed path says.
        bool const rooted = mask.size() >= 2 && mask[0] == '\\' && mask[1] != '\\';
        return File::MakePath(rooted ? typed : Path(), mask);
    }
    DeletionFolder Enter(String const & name) const
    {
        return {held.Enter(name), File::MakePath(typed, name)};
    }
};

bool DeleteFilesIn(String const & dir, String const & mask, bool includeDirectories)
{
    using kv::platform::HeldFolder;
    DeleteFilesCallback callback;
    DeletionFolder const folder{HeldFolder(File::MakePath(dir, TEXT(".")), HeldFolder::Links::Followed), dir};
    // Kept: a directory that is not there has no entries that could fail.
    return !folder || kv::detail::WalkFolder(folder, mask, callback, includeDirectories);
}

} // namespace

bool File::DeleteFilesRecursive(String const & dir, String const & mask, bool includeDirectories, bool removeRoot)
{
    bool const walked = DeleteFilesIn(dir, mask, includeDirectories);
    return walked && removeRoot ? RemoveDirectoryW(dir) : walked;
}

__int64 File::GetSizeRecursive(String const & path)
{
    if (IsEmptyText(path))
    {
        return -1;
    }
    if (!IsDriveRoot(path))
    {
        FileFinder finder;
        if (!finder.Start(path, false))
        {
            return 0;
        }
        if (!finder.IsDirectory())
        {
            return finder.GetFileSize();
        }
    }
    __int64 size = 0;
    GetDirSize(path, size);
    return size;
}

void File::GetDirSize(String const & dir, __int64 & size)
{
    // A list in place of recursion, so that neither the stack nor the number of open directories limits the depth.
    std::vector<String> pending(1, dir);
    while (!pending.empty())
    {
        String const directory = std::move(pending.back());
        pending.pop_back();
        FileFinder finder;
        for (bool found = finder.Start(directory + TEXT("\\*.*"), false); found; found = finder.Next())
        {
            if (!finder.IsDirectory())
            {
                // Unsigned, so that sizes that lie wrap instead of overflowing.
                size = static_cast<__int64>(
                    static_cast<unsigned __int64>(size) + static_cast<unsigned __int64>(finder.GetFileSize()));
            }
            else if (!finder.IsLink())
            {
                pending.push_back(finder.GetFilePath());
            }
        }
    }
}
