#pragma once

// Open files: handles, reading, writing, sizes, locks and times; memory-mapped files.
//
// Any thread may call anything with any handle. A call on a handle that another thread closes meanwhile is carried out
// on the file as it was. What fails gives FALSE (or the stated value) with the last error set: ERROR_INVALID_HANDLE for
// what is no handle of the right kind, ERROR_ACCESS_DENIED for what the handle was not opened for.

#include <kvcore/platform/include/basetypes.h>

#define DELETE 0x00010000u
#define READ_CONTROL 0x00020000u
#define WRITE_DAC 0x00040000u
#define WRITE_OWNER 0x00080000u
#define SYNCHRONIZE 0x00100000u
#define MAXIMUM_ALLOWED 0x02000000u
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u

#define FILE_READ_DATA 0x0001u
#define FILE_LIST_DIRECTORY 0x0001u
#define FILE_WRITE_DATA 0x0002u
#define FILE_APPEND_DATA 0x0004u
#define FILE_READ_EA 0x0008u
#define FILE_WRITE_EA 0x0010u
#define FILE_EXECUTE 0x0020u
#define FILE_READ_ATTRIBUTES 0x0080u
#define FILE_WRITE_ATTRIBUTES 0x0100u
#define FILE_GENERIC_READ 0x00120089u
#define FILE_GENERIC_WRITE 0x00120116u
#define FILE_GENERIC_EXECUTE 0x001200A0u
#define FILE_ALL_ACCESS 0x001F01FFu

#define FILE_SHARE_READ 0x00000001u
#define FILE_SHARE_WRITE 0x00000002u
#define FILE_SHARE_DELETE 0x00000004u

#define CREATE_NEW 1u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u
#define TRUNCATE_EXISTING 5u

#define FILE_FLAG_POSIX_SEMANTICS 0x01000000u
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u
#define FILE_FLAG_RANDOM_ACCESS 0x10000000u
#define FILE_FLAG_NO_BUFFERING 0x20000000u
#define FILE_FLAG_OVERLAPPED 0x40000000u
#define FILE_FLAG_WRITE_THROUGH 0x80000000u

#define FILE_BEGIN 0u
#define FILE_CURRENT 1u
#define FILE_END 2u
#define INVALID_FILE_SIZE 0xFFFFFFFFu
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu

#define FILE_TYPE_UNKNOWN 0u
#define FILE_TYPE_DISK 1u
#define FILE_TYPE_CHAR 2u
#define FILE_TYPE_PIPE 3u

#define STD_INPUT_HANDLE 0xFFFFFFF6u
#define STD_OUTPUT_HANDLE 0xFFFFFFF5u
#define STD_ERROR_HANDLE 0xFFFFFFF4u

#define LOCKFILE_FAIL_IMMEDIATELY 1u
#define LOCKFILE_EXCLUSIVE_LOCK 2u

#define DUPLICATE_CLOSE_SOURCE 1u
#define DUPLICATE_SAME_ACCESS 2u

#define VOLUME_NAME_DOS 0u
#define VOLUME_NAME_NONE 4u
#define FILE_NAME_NORMALIZED 0u
#define FILE_NAME_OPENED 8u

#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define PAGE_WRITECOPY 0x08u
#define SEC_COMMIT 0x08000000u
#define FILE_MAP_COPY 0x0001u
#define FILE_MAP_WRITE 0x0002u
#define FILE_MAP_READ 0x0004u
#define FILE_MAP_EXECUTE 0x0020u
#define FILE_MAP_ALL_ACCESS 0x000F001Fu

#define PROCESSOR_ARCHITECTURE_AMD64 9u

/// What an open file is: attributes, times, its volume and its number there.
struct BY_HANDLE_FILE_INFORMATION
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};
static_assert(sizeof(BY_HANDLE_FILE_INFORMATION) == 52);

/// The machine, as far as programs ask.
struct SYSTEM_INFO
{
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
static_assert(sizeof(SYSTEM_INFO) == 48);

extern "C"
{
    /// Opens or creates a file; opens a directory with FILE_FLAG_BACKUP_SEMANTICS. INVALID_HANDLE_VALUE on failure.
    ///
    /// `disposition`: CREATE_NEW fails with ERROR_FILE_EXISTS if the name is there. CREATE_ALWAYS empties a file that
    /// is there, OPEN_ALWAYS opens it; both set the last error to ERROR_ALREADY_EXISTS then, else to 0. OPEN_EXISTING
    /// and TRUNCATE_EXISTING (which needs GENERIC_WRITE) fail with ERROR_FILE_NOT_FOUND. A missing directory is
    /// ERROR_PATH_NOT_FOUND; a directory, or a file that is read-only and opened for writing, ERROR_ACCESS_DENIED.
    ///
    /// `shareMode` says what others may do meanwhile, and must allow what others who have the file open do already:
    /// else ERROR_SHARING_VIOLATION. This holds between the handles of a process, and between processes where the file
    /// system keeps locks for open files; it does not hold against programs that know nothing of it.
    ///
    /// FILE_ATTRIBUTE_READONLY makes a new file read-only, FILE_ATTRIBUTE_TEMPORARY one that its owner alone may read
    /// and write, from the moment it exists; other attributes are not kept. FILE_FLAG_DELETE_ON_CLOSE
    /// removes the file when its last handle is closed. FILE_FLAG_WRITE_THROUGH returns from a write when the data is
    /// on the disk. The other flags are hints. `security` and `templateFile` are not looked at.
    KVCORE_API HANDLE WINAPI CreateFileW(
        LPCWSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES security, DWORD disposition,
        DWORD flagsAndAttributes, HANDLE templateFile);

    /// Ends a handle. What it names lives on while other handles or views of it do.
    KVCORE_API BOOL WINAPI CloseHandle(HANDLE handle);

    /// A second handle of the same object, within this process: both are GetCurrentProcess(). Its access is that of
    /// `source` (DUPLICATE_SAME_ACCESS) or `access`, which may be less, but not more: ERROR_ACCESS_DENIED. A null
    /// `target` makes no handle. DUPLICATE_CLOSE_SOURCE closes `source`, also if the rest fails.
    KVCORE_API BOOL WINAPI DuplicateHandle(
        HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE * target, DWORD access, BOOL inherit,
        DWORD options);

    /// A handle's flags, which are always 0: no handle is inherited or protected from closing.
    KVCORE_API BOOL WINAPI GetHandleInformation(HANDLE handle, LPDWORD flags);

    /// The pseudo handle that names this process.
    KVCORE_API HANDLE WINAPI GetCurrentProcess();

    /// The handle of standard input, output or error, made on first use; INVALID_HANDLE_VALUE for any other number.
    KVCORE_API HANDLE WINAPI GetStdHandle(DWORD which);

    /// Transfers `count` bytes at the file's position, which moves on. A read gives fewer at the end of the file, and 0
    /// there, which is no failure; of a pipe it gives what has come, and fails with ERROR_BROKEN_PIPE when the writers
    /// are gone. A write that fails half way (ERROR_DISK_FULL) has told in `transferred` what was written.
    ///
    /// With `overlapped`, the transfer is at the place that it names, and the position of a synchronous handle stands
    /// behind it afterwards; a read at the end of the file fails with ERROR_HANDLE_EOF then. A place of all ones
    /// appends to the file, one of all ones but the last bit is the current position. A handle opened with
    /// FILE_FLAG_OVERLAPPED needs `overlapped`: ERROR_INVALID_PARAMETER.
    ///
    /// ERROR_LOCK_VIOLATION if another handle of this process has locked a byte of the range. A buffer that is not
    /// there: ERROR_NOACCESS for a read, ERROR_INVALID_USER_BUFFER for a write.
    KVCORE_API BOOL WINAPI
    ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD transferred, OVERLAPPED * overlapped);
    KVCORE_API BOOL WINAPI
    WriteFile(HANDLE file, LPCVOID buffer, DWORD count, LPDWORD transferred, OVERLAPPED * overlapped);

    /// Moves the file's position, from the beginning, from where it is, or from the end. A place before the beginning
    /// is ERROR_NEGATIVE_SEEK, one behind the end is allowed. INVALID_SET_FILE_POINTER is a failure only if the last
    /// error is not 0. Without `high`, `distance` is signed, and a new place that does not fit in 32 bits is
    /// ERROR_INVALID_PARAMETER.
    KVCORE_API DWORD WINAPI SetFilePointer(HANDLE file, LONG distance, LONG * high, DWORD method);
    KVCORE_API BOOL WINAPI
    SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER * position, DWORD method);

    /// Cuts or grows the file to its position. ERROR_USER_MAPPED_FILE if it would cut a file that this process has
    /// mapped.
    KVCORE_API BOOL WINAPI SetEndOfFile(HANDLE file);

    /// The size in bytes. INVALID_FILE_SIZE is a failure only if the last error is not 0.
    KVCORE_API DWORD WINAPI GetFileSize(HANDLE file, LPDWORD high);
    KVCORE_API BOOL WINAPI GetFileSizeEx(HANDLE file, LARGE_INTEGER * size);

    /// Returns when all that was written is on the disk. The handle must be open for writing.
    KVCORE_API BOOL WINAPI FlushFileBuffers(HANDLE file);

    /// Lock a range of bytes, which may lie behind the end, against the other handles of the file, in this process and,
    /// where the file system keeps locks, in others. An exclusive lock bars others from reading and writing, a shared
    /// one everybody from writing; this bar stands within the process, others meet it only at a lock of their own.
    /// ERROR_LOCK_VIOLATION if a lock is in the way and LOCKFILE_FAIL_IMMEDIATELY is set, else the call waits.
    /// LockFile is exclusive and does not wait. A range beyond 2^64 is ERROR_INVALID_PARAMETER. Locks end with the
    /// handle's file.
    KVCORE_API BOOL WINAPI LockFile(HANDLE file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow, DWORD lengthHigh);
    KVCORE_API BOOL WINAPI
    LockFileEx(HANDLE file, DWORD flags, DWORD reserved, DWORD lengthLow, DWORD lengthHigh, OVERLAPPED * overlapped);

    /// Take back one lock of exactly this range; ERROR_NOT_LOCKED if there is none.
    KVCORE_API BOOL WINAPI
    UnlockFile(HANDLE file, DWORD offsetLow, DWORD offsetHigh, DWORD lengthLow, DWORD lengthHigh);
    KVCORE_API BOOL WINAPI
    UnlockFileEx(HANDLE file, DWORD reserved, DWORD lengthLow, DWORD lengthHigh, OVERLAPPED * overlapped);

    /// The three times; a null pointer skips one.
    KVCORE_API BOOL WINAPI GetFileTime(HANDLE file, FILETIME * creation, FILETIME * access, FILETIME * write);

    /// Sets the times of access and of writing; a null pointer, a time of 0 and one of all ones leave one alone, other
    /// negative times are ERROR_INVALID_PARAMETER. The creation time is the file system's own and cannot be set:
    /// `creation` is checked and otherwise not looked at.
    KVCORE_API BOOL WINAPI
    SetFileTime(HANDLE file, FILETIME const * creation, FILETIME const * access, FILETIME const * write);

    KVCORE_API BOOL WINAPI GetFileInformationByHandle(HANDLE file, BY_HANDLE_FILE_INFORMATION * information);

    /// FILE_TYPE_DISK (directories too), FILE_TYPE_CHAR, FILE_TYPE_PIPE.
    KVCORE_API DWORD WINAPI GetFileType(HANDLE file);

    /// The path of an open file, links resolved, as "\\?\Z:\...", or with VOLUME_NAME_NONE without "\\?\" and drive.
    /// Returns the elements without the NUL; if there is not enough room, those needed with it.
    KVCORE_API DWORD WINAPI GetFinalPathNameByHandleW(HANDLE file, LPWSTR buffer, DWORD capacity, DWORD flags);

    /// A mapping of a file of which views can be made; null on failure. `size` 0 is the file's own, which must not be 0
    /// (ERROR_FILE_INVALID); with PAGE_READWRITE a larger size grows the file, else it is ERROR_NOT_ENOUGH_MEMORY. The
    /// file must be open for reading, for PAGE_READWRITE also for writing. INVALID_HANDLE_VALUE maps memory of `size`
    /// bytes instead of a file. Mappings have no names: `name` must be null (ERROR_NOT_SUPPORTED). The mapping needs
    /// the file's handle no longer.
    KVCORE_API HANDLE WINAPI CreateFileMappingW(
        HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD sizeHigh, DWORD sizeLow, LPCWSTR name);

    /// Maps `count` bytes, or for 0 all that follow, from an offset that is a multiple of 64 KiB
    /// (ERROR_MAPPED_ALIGNMENT). FILE_MAP_WRITE shares what is written with the file, FILE_MAP_COPY keeps it to this
    /// view. ERROR_ACCESS_DENIED if the mapping has not the protection for it or is not that large. The view needs the
    /// mapping's handle no longer. Touching a page that lies wholly behind the end of the file, after somebody cut it,
    /// is a hardware fault.
    KVCORE_API LPVOID WINAPI
    MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T count);

    /// Ends the view that begins at `address`; ERROR_INVALID_ADDRESS if none does.
    KVCORE_API BOOL WINAPI UnmapViewOfFile(LPCVOID address);

    /// Writes what was changed in `count` bytes of a view, or for 0 to its end, to the disk. ERROR_INVALID_PARAMETER
    /// for what is not in one view.
    KVCORE_API BOOL WINAPI FlushViewOfFile(LPCVOID address, SIZE_T count);

    KVCORE_API void WINAPI GetSystemInfo(SYSTEM_INFO * information);
}
