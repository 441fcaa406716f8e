#pragma once

// Names in the file system: paths and drives, attributes, directories, finding, copying, moving and removing.
//
// Paths are Win32 paths, in and out. `Z:` is the system's root, `C:` a folder of the user's data directory
// ($XDG_DATA_HOME/kvcore/drive_c, or ~/.local/share/kvcore/drive_c), further drives are links `d:` in the folder
// dosdevices beside it. Names are found without regard to case, and the exact name goes before others. `/` is taken for
// `\`, but not behind \\?\. Names of other machines (\\server\share) are refused. A path has at most as many bytes as
// the kernel takes, 4,095; there is no limit of 260.
//
// Any thread may call anything; the current directory is the process's. What fails gives FALSE or the stated value,
// with the last error set: ERROR_FILE_NOT_FOUND if what a path names is missing, ERROR_PATH_NOT_FOUND if a directory on
// the way is, or is none, ERROR_INVALID_NAME for characters that no name has, ERROR_ACCESS_DENIED where the user has no
// right, ERROR_BAD_NETPATH for another machine, ERROR_FILENAME_EXCED_RANGE for what is too long,
// ERROR_CANT_RESOLVE_FILENAME for links in a circle. Further errors stand at the calls.
//
// Links are directories or files as what they lead to, with FILE_ATTRIBUTE_REPARSE_POINT added: who walks a tree and
// must not leave it looks for that. Deleting, moving and removing act on the link itself. A link that leads nowhere has
// attributes, is found and can be deleted, but does not open.

#include <kvcore/platform/include/basetypes.h>

#define FILE_ATTRIBUTE_READONLY 0x00000001u
#define FILE_ATTRIBUTE_HIDDEN 0x00000002u
#define FILE_ATTRIBUTE_SYSTEM 0x00000004u
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020u
#define FILE_ATTRIBUTE_DEVICE 0x00000040u
#define FILE_ATTRIBUTE_NORMAL 0x00000080u
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100u
#define FILE_ATTRIBUTE_SPARSE_FILE 0x00000200u
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400u
#define FILE_ATTRIBUTE_COMPRESSED 0x00000800u
#define FILE_ATTRIBUTE_OFFLINE 0x00001000u
#define FILE_ATTRIBUTE_NOT_CONTENT_INDEXED 0x00002000u
#define FILE_ATTRIBUTE_ENCRYPTED 0x00004000u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu

#define IO_REPARSE_TAG_SYMLINK 0xA000000Cu

#define MOVEFILE_REPLACE_EXISTING 0x00000001u
#define MOVEFILE_COPY_ALLOWED 0x00000002u
#define MOVEFILE_WRITE_THROUGH 0x00000008u

#define REPLACEFILE_WRITE_THROUGH 0x00000001u
#define REPLACEFILE_IGNORE_MERGE_ERRORS 0x00000002u
#define REPLACEFILE_IGNORE_ACL_ERRORS 0x00000004u

#define DRIVE_UNKNOWN 0u
#define DRIVE_NO_ROOT_DIR 1u
#define DRIVE_REMOVABLE 2u
#define DRIVE_FIXED 3u
#define DRIVE_REMOTE 4u
#define DRIVE_CDROM 5u
#define DRIVE_RAMDISK 6u

#define FILE_CASE_SENSITIVE_SEARCH 0x00000001u
#define FILE_CASE_PRESERVED_NAMES 0x00000002u
#define FILE_UNICODE_ON_DISK 0x00000004u
#define FILE_PERSISTENT_ACLS 0x00000008u
#define FILE_READ_ONLY_VOLUME 0x00080000u

#define CSIDL_DESKTOP 0x0000
#define CSIDL_PERSONAL 0x0005
#define CSIDL_MYMUSIC 0x000D
#define CSIDL_MYVIDEO 0x000E
#define CSIDL_DESKTOPDIRECTORY 0x0010
#define CSIDL_FONTS 0x0014
#define CSIDL_APPDATA 0x001A
#define CSIDL_LOCAL_APPDATA 0x001C
#define CSIDL_COMMON_APPDATA 0x0023
#define CSIDL_WINDOWS 0x0024
#define CSIDL_SYSTEM 0x0025
#define CSIDL_PROGRAM_FILES 0x0026
#define CSIDL_MYPICTURES 0x0027
#define CSIDL_PROFILE 0x0028
#define CSIDL_PROGRAM_FILES_COMMON 0x002B
#define CSIDL_FLAG_CREATE 0x8000

/// The form in which GetFileAttributesExW answers; there is one.
enum GET_FILEEX_INFO_LEVELS
{
    GetFileExInfoStandard,
    GetFileExMaxInfoLevel
};

/// Attributes, times and size of what a path names.
struct WIN32_FILE_ATTRIBUTE_DATA
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
};
static_assert(sizeof(WIN32_FILE_ATTRIBUTE_DATA) == 36);

extern "C"
{
    /// The whole path of `name`: from a drive on, without dots and doubled separators. Nothing is looked for on a disk,
    /// and case stays as it is. Gives the length without the NUL if it fits into `capacity` elements, else the length
    /// with the NUL; 0 with ERROR_INVALID_NAME for an empty name. `filePart`, if given, points to the last component,
    /// or is null if the path ends in a separator.
    KVCORE_API DWORD WINAPI GetFullPathNameW(LPCWSTR name, DWORD capacity, LPWSTR buffer, LPWSTR * filePart);

    /// The path with each component of what exists in its short form (8.3), or as it is on the disk where that is short
    /// already or its short form would not be unique. The result opens the same file. Lengths as above.
    KVCORE_API DWORD WINAPI GetShortPathNameW(LPCWSTR longPath, LPWSTR shortPath, DWORD capacity);

    /// The path with each component of what exists as it is spelled on the disk. Relative paths stay relative, and "."
    /// and ".." stay. Lengths as above. The buffers may be one and the same.
    KVCORE_API DWORD WINAPI GetLongPathNameW(LPCWSTR shortPath, LPWSTR longPath, DWORD capacity);

    /// The process's current directory, on Z: always. Lengths as above.
    KVCORE_API DWORD WINAPI GetCurrentDirectoryW(DWORD capacity, LPWSTR buffer);
    /// ERROR_DIRECTORY for a file, ERROR_FILE_NOT_FOUND if it is missing.
    KVCORE_API BOOL WINAPI SetCurrentDirectoryW(LPCWSTR path);

    /// The directory for temporary files, a separator at its end: that of the environment ($TMPDIR), which is not
    /// looked for, else one of the user's own on C:, which is made if it is missing. Lengths as above.
    KVCORE_API DWORD WINAPI GetTempPathW(DWORD capacity, LPWSTR buffer);
    /// Names a file in `path`, of up to 3 letters of `prefix`, a hexadecimal number and ".tmp", into `target`, which
    /// holds 260 elements. With `unique` 0 the number is the first free one, the file is created, empty and its owner's
    /// alone, and the number given; else the low 16 bits of `unique` are used and nothing is created. 0 with
    /// ERROR_DIRECTORY if `path` is no directory, ERROR_BUFFER_OVERFLOW if the name would not fit.
    KVCORE_API UINT WINAPI GetTempFileNameW(LPCWSTR path, LPCWSTR prefix, UINT unique, LPWSTR target);

    /// FILE_ATTRIBUTE_DIRECTORY, or ARCHIVE for files; READONLY for a file that nobody may write; HIDDEN if the name
    /// begins with a dot; REPARSE_POINT for a link. INVALID_FILE_ATTRIBUTES on failure.
    KVCORE_API DWORD WINAPI GetFileAttributesW(LPCWSTR name);
    /// The same with times and size, into a WIN32_FILE_ATTRIBUTE_DATA. Where a file system keeps no creation time, the
    /// earlier of the times of the last write and the last change of the entry stands for it. The size of a directory
    /// is 0.
    KVCORE_API BOOL WINAPI GetFileAttributesExW(LPCWSTR name, GET_FILEEX_INFO_LEVELS level, LPVOID data);
    /// FILE_ATTRIBUTE_READONLY takes the right to write a file from everybody; without it the owner alone has it again,
    /// if nobody had. On a directory it forbids nothing, and is not kept. The other attributes have no place here and
    /// are ignored: a name is hidden by its dot alone.
    KVCORE_API BOOL WINAPI SetFileAttributesW(LPCWSTR name, DWORD attributes);

    /// ERROR_ALREADY_EXISTS if the name is there. The directory above must exist.
    KVCORE_API BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security);
    /// ERROR_DIR_NOT_EMPTY; ERROR_DIRECTORY for a file. A link to a directory is removed, its target stays.
    KVCORE_API BOOL WINAPI RemoveDirectoryW(LPCWSTR path);

    /// Removes a file, or a link to one. ERROR_ACCESS_DENIED for a directory and for what is read-only,
    /// ERROR_SHARING_VIOLATION while somebody has it open and does not share deleting. Who has it open and does keeps
    /// it until he closes it; its name is free at once.
    KVCORE_API BOOL WINAPI DeleteFileW(LPCWSTR name);

    /// Copies a file's content, its rights, as far as new files have them, and the time of its last write. An existing
    /// target keeps its rights and is emptied first: ERROR_FILE_EXISTS if `failIfExists`, ERROR_ACCESS_DENIED if it is
    /// read-only or a directory. What could be copied in part only is removed.
    KVCORE_API BOOL WINAPI CopyFileW(LPCWSTR from, LPCWSTR to, BOOL failIfExists);

    /// Gives a file or a directory another name, in one step; nobody sees both or neither. A name may change in case
    /// alone. ERROR_ALREADY_EXISTS if the new name is taken, whoever took it last; with MOVEFILE_REPLACE_EXISTING a
    /// file there is replaced (ERROR_ACCESS_DENIED for a directory, for what is read-only and for what is open).
    /// MOVEFILE_COPY_ALLOWED lets a file go to another file system, where it appears whole, else ERROR_NOT_SAME_DEVICE;
    /// directories do not go. MOVEFILE_WRITE_THROUGH returns when the names are on the disk. Other flags are refused
    /// with ERROR_INVALID_PARAMETER.
    KVCORE_API BOOL WINAPI MoveFileExW(LPCWSTR existingName, LPCWSTR newName, DWORD flags);
    /// With MOVEFILE_COPY_ALLOWED.
    KVCORE_API BOOL WINAPI MoveFileW(LPCWSTR existingName, LPCWSTR newName);

    /// Puts one file in the place of another that exists, in one step and written to the disk: whoever looks, or comes
    /// after a crash, finds the old content or the new. The old one's rights and, where the user may give them, owner
    /// and group stay; if its name is a link, what the link leads to is replaced. With `backupName` the old content is
    /// kept there. Both on one file system: ERROR_UNABLE_TO_MOVE_REPLACEMENT; ERROR_UNABLE_TO_REMOVE_REPLACED if there
    /// can be no backup, and then nothing has changed. `exclude` and `reserved` are null.
    KVCORE_API BOOL WINAPI ReplaceFileW(
        LPCWSTR replacedName, LPCWSTR replacementName, LPCWSTR backupName, DWORD flags, LPVOID exclude,
        LPVOID reserved);

    /// The root of a drive, or null for the current one: DRIVE_FIXED, DRIVE_REMOTE for network file systems,
    /// DRIVE_CDROM, DRIVE_RAMDISK for memory file systems, DRIVE_NO_ROOT_DIR if nothing is there. Any directory is
    /// taken, as its file system's.
    KVCORE_API UINT WINAPI GetDriveTypeW(LPCWSTR root);
    /// A bit for each drive, from A at bit 0.
    KVCORE_API DWORD WINAPI GetLogicalDrives();
    /// Kept: every file system is called "NTFS", since programs take from that name that long names and large files
    /// work. The serial number comes from the file system's own id. `root` is a root with its separator, or null for
    /// that of the current drive: ERROR_INVALID_NAME without the separator, ERROR_DIR_NOT_ROOT for other directories;
    /// ERROR_BAD_LENGTH where a name does not fit. Each pointer may be null.
    KVCORE_API BOOL WINAPI GetVolumeInformationW(
        LPCWSTR root, LPWSTR label, DWORD labelCapacity, LPDWORD serialNumber, LPDWORD longestComponent, LPDWORD flags,
        LPWSTR fileSystem, DWORD fileSystemCapacity);
    /// Space in clusters, which count as at most 2^32-1. Pointers may be null.
    KVCORE_API BOOL WINAPI GetDiskFreeSpaceW(
        LPCWSTR root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector, LPDWORD freeClusters, LPDWORD clusters);
    /// Space in bytes, for this user, in all, and free for whomever. Any directory is taken. Pointers may be null.
    KVCORE_API BOOL WINAPI GetDiskFreeSpaceExW(
        LPCWSTR directory, ULARGE_INTEGER * freeToCaller, ULARGE_INTEGER * total, ULARGE_INTEGER * totalFree);

    /// Finds the entries of a directory whose names match a mask: the last component, with `*` for any number of
    /// characters and `?` for exactly one. Gives the first one and a handle for FindNextFileW, or INVALID_HANDLE_VALUE:
    /// ERROR_FILE_NOT_FOUND if nothing matches, ERROR_PATH_NOT_FOUND if the directory is missing, ERROR_DIRECTORY if it
    /// is a file. A name without wildcards is found as any file is; a path that ends in a separator finds nothing.
    ///
    /// Short names count as well as long ones. What is left of the mask at a name's end may be dots and stars, so that
    /// `*.*` finds all; dots and blanks at the mask's end do not count, so that `*.` does, too. "." and ".." come
    /// first, but not in a drive's root; the others are in the order of their names in upper case. Entries that vanish
    /// meanwhile are left out, and so are names that do not fit into the record.
    KVCORE_API HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, WIN32_FIND_DATAW * data);
    /// ERROR_NO_MORE_FILES at the end.
    KVCORE_API BOOL WINAPI FindNextFileW(HANDLE find, WIN32_FIND_DATAW * data);
    /// Ends a search. ERROR_INVALID_HANDLE for what is none.
    KVCORE_API BOOL WINAPI FindClose(HANDLE find);

    /// The folder of a CSIDL_ number, in `path`, which holds 260 elements; made if it is missing and `create` is set.
    /// They lie on C:, those of the user in a folder of his own in `C:\Users`. ERROR_INVALID_PARAMETER for a number
    /// that has none here.
    KVCORE_API BOOL WINAPI SHGetSpecialFolderPathW(HWND owner, LPWSTR path, int folder, BOOL create);
}
