// What a path tells of the drive that it lies on.

#include <kvcore/files/File.h>

#include <kvcore/files/PathRules.h>

#include <kvcore/platform/win32.h>

using kv::detail::separator;

namespace
{

// The root of a path, as the shell sees it. False, with whatever is left of the path, if it has none.
bool StripToRoot(String const & path, String & root)
{
    root = path.c_str();
    bool const stripped = ::PathStripToRootW(root.data()) != FALSE;
    root = String(root.c_str());
    return stripped;
}

} // namespace

unsigned int File::GetDriveTypeW(String const & path)
{
    String root;
    bool const hasRoot = StripToRoot(path, root);
    return ::GetDriveTypeW(hasRoot ? root.c_str() : nullptr);
}

bool File::IsNTFSPath(String const & path)
{
    String root = path;
    std::size_t const first = root.find(separator);
    if (first != String::npos)
    {
        root.resize(first + 1);
    }
    // Whether the query succeeds is not looked at: then the name is empty.
    WCHAR fileSystem[MAX_PATH] = {};
    ::GetVolumeInformationW(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, fileSystem, MAX_PATH);
    fileSystem[MAX_PATH - 1] = 0;
    return kv::detail::PathView(fileSystem) == TEXT("NTFS");
}

bool File::GetDriveInfo(String const & path, DriveInfo & info)
{
    info = DriveInfo();
    String root;
    if (!StripToRoot(GetCanonicalPath(path), root))
    {
        return false;
    }
    info.root = root;

    bool const hasClusters = ::GetDiskFreeSpaceW(
                                 root.c_str(), &info.sectorsPerCluster, &info.bytesPerSector, &info.freeClusters,
                                 &info.totalClusters) != FALSE;
    ULARGE_INTEGER available;
    ULARGE_INTEGER total;
    ULARGE_INTEGER free;
    if (!::GetDiskFreeSpaceExW(root.c_str(), &available, &total, &free))
    {
        return false;
    }
    info.freeBytesAvailable = available.QuadPart;
    info.totalBytes = total.QuadPart;
    info.totalFreeBytes = free.QuadPart;
    return hasClusters;
}
