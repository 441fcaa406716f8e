#include <algorithm>

#include <cstring>

#include <linux/magic.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <kvcore/platform/include/directories.h>
#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/Drives.h>
#include <kvcore/platform/linux/paths/NativePath.h>
#include <kvcore/platform/linux/paths/PathSyntax.h>
#include <kvcore/platform/types.h>

using namespace kv::platform;

namespace
{

/// The directory that a call about a volume names; the current drive's root for null.
bool FindVolume(WCHAR const * root, NativePath & path)
{
    if (!path.Translate(root != nullptr ? root : TEXT("Z:\\"), Look::Existing))
    {
        return false;
    }
    return path.IsDirectory() ? true : FailWith(ERROR_DIRECTORY);
}

UINT DriveTypeOf(char const * path)
{
    struct statfs status;
    if (statfs(path, &status) != 0)
    {
        return DRIVE_NO_ROOT_DIR;
    }
    switch (static_cast<unsigned long>(status.f_type) & 0xFFFFFFFFul)
    {
    case NFS_SUPER_MAGIC:
    case SMB_SUPER_MAGIC:
    case 0xFF534D42: // CIFS
    case 0xFE534D42: // SMB 2
    case CODA_SUPER_MAGIC:
    case AFS_SUPER_MAGIC:
    case V9FS_MAGIC:
        return DRIVE_REMOTE;
    case ISOFS_SUPER_MAGIC:
    case UDF_SUPER_MAGIC:
        return DRIVE_CDROM;
    case RAMFS_MAGIC:
    case TMPFS_MAGIC:
        return DRIVE_RAMDISK;
    default:
        return DRIVE_FIXED;
    }
}

} // namespace

UINT WINAPI GetDriveTypeW(LPCWSTR root)
{
    CheckText(root);
    DWORD const before = GetLastError();
    NativePath path;
    bool const found = FindVolume(root, path);
    SetLastError(before);
    return found ? DriveTypeOf(path.CStr()) : DRIVE_NO_ROOT_DIR;
}

DWORD WINAPI GetLogicalDrives()
{
    DWORD const before = GetLastError();
    DWORD drives = 0;
    for (unsigned i = 0; i < 26; i++)
    {
        drives |= DriveExists(static_cast<WCHAR>('A' + i)) ? 1u << i : 0;
    }
    SetLastError(before);
    return drives;
}

namespace
{

/// Copies a text out; ERROR_BAD_LENGTH if it does not fit. A null buffer wants nothing.
bool GiveName(WCHAR const * text, WCHAR * buffer, DWORD capacity)
{
    std::size_t const size = WString::traits_type::length(text) + 1;
    if (buffer != nullptr && size > capacity)
    {
        return FailWith(ERROR_BAD_LENGTH);
    }
    if (buffer != nullptr)
    {
        CopyToCaller(buffer, text, size * sizeof(WCHAR));
    }
    return true;
}

void Give(DWORD * target, std::uint64_t value)
{
    if (target != nullptr)
    {
        *target = static_cast<DWORD>(std::min<std::uint64_t>(value, UINT32_MAX));
    }
}

bool IsRootSyntax(WCHAR const * root)
{
    WCHAR const * const end = root + WString::traits_type::length(root);
    return end != root && IsSeparator(end[-1]);
}

} // namespace

BOOL WINAPI GetVolumeInformationW(
    LPCWSTR root, LPWSTR label, DWORD labelCapacity, LPDWORD serialNumber, LPDWORD longestComponent, LPDWORD flags,
    LPWSTR fileSystem, DWORD fileSystemCapacity)
{
    CheckText(root);
    CheckBuffer(label, labelCapacity);
    CheckOutputs(serialNumber, longestComponent, flags);
    CheckBuffer(fileSystem, fileSystemCapacity);
    if (root != nullptr && !IsRootSyntax(root))
    {
        return FailWith(ERROR_INVALID_NAME);
    }
    NativePath path;
    if (!FindVolume(root, path))
    {
        return FALSE;
    }
    if (!path.IsDriveRoot())
    {
        return FailWith(ERROR_DIR_NOT_ROOT);
    }
    struct statvfs status;
    if (statvfs(path.CStr(), &status) != 0)
    {
        return FailErrno();
    }
    auto const id = static_cast<std::uint64_t>(status.f_fsid);
    if (serialNumber != nullptr)
    {
        *serialNumber = static_cast<DWORD>(id ^ id >> 32);
    }
    Give(longestComponent, status.f_namemax);
    DWORD const readOnly = (status.f_flag & ST_RDONLY) != 0 ? FILE_READ_ONLY_VOLUME : 0;
    Give(flags, FILE_CASE_PRESERVED_NAMES | FILE_UNICODE_ON_DISK | readOnly);
    return GiveName(TEXT(""), label, labelCapacity) && GiveName(TEXT("NTFS"), fileSystem, fileSystemCapacity);
}

BOOL WINAPI GetDiskFreeSpaceW(
    LPCWSTR root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector, LPDWORD freeClusters, LPDWORD clusters)
{
    CheckText(root);
    CheckOutputs(sectorsPerCluster, bytesPerSector, freeClusters, clusters);
    NativePath path;
    struct statvfs status;
    if (!FindVolume(root, path))
    {
        return FALSE;
    }
    if (statvfs(path.CStr(), &status) != 0)
    {
        return FailErrno();
    }
    // Sectors are 512 bytes, as programs expect, unless the file system's blocks are no multiple of that.
    std::uint64_t const block = status.f_frsize;
    std::uint64_t const sector = block % 512 == 0 && block != 0 ? 512 : block;
    Give(sectorsPerCluster, sector == 0 ? 0 : block / sector);
    Give(bytesPerSector, sector);
    Give(freeClusters, status.f_bavail);
    Give(clusters, status.f_blocks);
    return TRUE;
}

BOOL WINAPI GetDiskFreeSpaceExW(
    LPCWSTR directory, ULARGE_INTEGER * freeToCaller, ULARGE_INTEGER * total, ULARGE_INTEGER * totalFree)
{
    CheckText(directory);
    CheckOutputs(freeToCaller, total, totalFree);
    NativePath path;
    struct statvfs status;
    if (!FindVolume(directory, path))
    {
        return FALSE;
    }
    if (statvfs(path.CStr(), &status) != 0)
    {
        return FailErrno();
    }
    auto const give = [&](ULARGE_INTEGER * target, std::uint64_t blocks)
    {
        if (target != nullptr)
        {
            target->QuadPart = blocks * status.f_frsize;
        }
    };
    give(freeToCaller, status.f_bavail);
    give(total, status.f_blocks);
    give(totalFree, status.f_bfree);
    return TRUE;
}
