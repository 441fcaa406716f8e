#pragma once

// The registry: keys of typed, named values, kept from one run to the next in one store for each user. It lies in the
// data directory, and any number of processes may use it at once.
//
// Everything but the last error comes back as the result: ERROR_SUCCESS or the code of the failure. Names are found
// without regard to case and keep the case that they were made with. A key's name has 1 to 255 elements and no
// backslash, a value's up to 16,383; the value with the empty name is the key's default value. Paths separate keys by
// backslashes; one at the start is ERROR_BAD_PATHNAME, several together count as one, and so does one at the end.
//
// Any call on a key that has been deleted gives ERROR_KEY_DELETED, unless it is made through a predefined root. The
// store itself can fail: ERROR_BADDB if it is damaged (the files are set aside under another name beside it, and the
// next call begins an empty store), ERROR_OLD_WIN_VERSION if a newer version of this system made it, which leaves it
// untouched, ERROR_BUSY if another process holds it locked for five seconds, ERROR_CANTOPEN, ERROR_ACCESS_DENIED,
// ERROR_DISK_FULL, ERROR_REGISTRY_IO_FAILED.
//
// A change is there for all processes when its call returns, also if the process dies then; after a loss of power the
// last changes before it may be missing, unless RegFlushKey came after them. Any thread may use any key.

#include <kvcore/platform/include/basetypes.h>

typedef DWORD REGSAM;
typedef LONG LSTATUS;

#define HKEY_CLASSES_ROOT ((HKEY)(ULONG_PTR)(LONG)0x80000000)  ///< classes of objects and files
#define HKEY_CURRENT_USER ((HKEY)(ULONG_PTR)(LONG)0x80000001)  ///< this user's key below HKEY_USERS
#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)(LONG)0x80000002) ///< this user's view of the machine
#define HKEY_USERS ((HKEY)(ULONG_PTR)(LONG)0x80000003)
#define HKEY_PERFORMANCE_DATA ((HKEY)(ULONG_PTR)(LONG)0x80000004) ///< opens, and holds nothing
#define HKEY_CURRENT_CONFIG ((HKEY)(ULONG_PTR)(LONG)0x80000005)   ///< the machine's current hardware profile
#define HKEY_DYN_DATA ((HKEY)(ULONG_PTR)(LONG)0x80000006)

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_DWORD_LITTLE_ENDIAN 4u
#define REG_DWORD_BIG_ENDIAN 5u
#define REG_LINK 6u
#define REG_MULTI_SZ 7u
#define REG_RESOURCE_LIST 8u
#define REG_FULL_RESOURCE_DESCRIPTOR 9u
#define REG_RESOURCE_REQUIREMENTS_LIST 10u
#define REG_QWORD 11u
#define REG_QWORD_LITTLE_ENDIAN 11u

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_CREATE_SUB_KEY 0x0004u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_NOTIFY 0x0010u
#define KEY_CREATE_LINK 0x0020u
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_EXECUTE 0x20019u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_OPTION_NON_VOLATILE 0u
#define REG_OPTION_VOLATILE 1u
#define REG_CREATED_NEW_KEY 1u
#define REG_OPENED_EXISTING_KEY 2u

#define REG_NOTIFY_CHANGE_NAME 1u
#define REG_NOTIFY_CHANGE_ATTRIBUTES 2u
#define REG_NOTIFY_CHANGE_LAST_SET 4u
#define REG_NOTIFY_CHANGE_SECURITY 8u

extern "C"
{
    /// Opens a key that is there: ERROR_FILE_NOT_FOUND if it is not, with null at `result`. `access` is what the new
    /// handle allows: KEY_QUERY_VALUE for reading values, KEY_SET_VALUE for changing them, KEY_ENUMERATE_SUB_KEYS,
    /// KEY_NOTIFY, generic rights or MAXIMUM_ALLOWED. Keys are made and deleted whatever the handle allows. No path, or
    /// an empty one, opens the key itself again; a predefined root then comes back as it is.
    KVCORE_API LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY result);

    /// Opens a key, making it and those above it where they are missing; `disposition` tells which of the two. A key
    /// made with REG_OPTION_VOLATILE lasts until the system is started anew, and below it all are volatile:
    /// ERROR_CHILD_MUST_BE_VOLATILE. `keyClass` is a text that goes with a new key. ERROR_INVALID_PARAMETER for a name
    /// that is too long.
    KVCORE_API LSTATUS WINAPI RegCreateKeyExW(
        HKEY key, LPCWSTR path, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
        SECURITY_ATTRIBUTES * security, PHKEY result, LPDWORD disposition);

    /// Closes a handle. Predefined roots take it without effect.
    KVCORE_API LSTATUS WINAPI RegCloseKey(HKEY key);

    /// Returns when all changes so far lie on the disk.
    KVCORE_API LSTATUS WINAPI RegFlushKey(HKEY key);

    /// The root `root` of a machine's registry, which must be this one: no name, or its own, with or without two
    /// backslashes. ERROR_BAD_NETPATH for others, with `result` untouched.
    KVCORE_API LSTATUS WINAPI RegConnectRegistryW(LPCWSTR machine, HKEY root, PHKEY result);

    /// Reads a value. `size` is the room at `data` in bytes, and afterwards what the value takes: also if there is no
    /// `data`, and with ERROR_MORE_DATA, which leaves `data` alone. A text that ends without a NUL gets
    /// one behind it where there is room, which does not count. ERROR_FILE_NOT_FOUND if there is no such value.
    KVCORE_API LSTATUS WINAPI
    RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, BYTE * data, LPDWORD size);

    /// Makes or replaces a value with `size` bytes of any type. Unlike elsewhere nothing behind them is looked at: a
    /// text without its NUL is stored so.
    KVCORE_API LSTATUS WINAPI
    RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, BYTE const * data, DWORD size);

    /// Reads or sets the default value of the key at `path`, as text; setting makes the key. `size` of setting is not
    /// looked at; that of reading is in bytes with the NUL. A key without one reads as the empty text.
    KVCORE_API LSTATUS WINAPI RegQueryValueW(HKEY key, LPCWSTR path, LPWSTR text, LONG * size);
    KVCORE_API LSTATUS WINAPI RegSetValueW(HKEY key, LPCWSTR path, DWORD type, LPCWSTR text, DWORD size);

    /// ERROR_FILE_NOT_FOUND if there is no such value.
    KVCORE_API LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name);

    /// Deletes a key that has no keys below it (ERROR_ACCESS_DENIED), with its values; an empty path names the key
    /// itself, none is ERROR_INVALID_PARAMETER. The predefined roots and the keys they lead to cannot be deleted.
    KVCORE_API LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR path);

    /// The value, or the key below, at a place in the order of names: ERROR_NO_MORE_ITEMS behind the last. Sizes of
    /// names are in elements, with the NUL on the way in and without it on the way out. ERROR_MORE_DATA if a name or
    /// data find no room.
    KVCORE_API LSTATUS WINAPI RegEnumValueW(
        HKEY key, DWORD index, LPWSTR name, LPDWORD nameSize, LPDWORD reserved, LPDWORD type, BYTE * data,
        LPDWORD size);
    KVCORE_API LSTATUS WINAPI RegEnumKeyExW(
        HKEY key, DWORD index, LPWSTR name, LPDWORD nameSize, LPDWORD reserved, LPWSTR keyClass, LPDWORD classSize,
        FILETIME * lastWrite);

    /// Counts and greatest lengths, of names in elements without a NUL, of data in bytes. Every place may be null. The
    /// security descriptor has no size here.
    KVCORE_API LSTATUS WINAPI RegQueryInfoKeyW(
        HKEY key, LPWSTR keyClass, LPDWORD classSize, LPDWORD reserved, LPDWORD keys, LPDWORD longestKey,
        LPDWORD longestClass, LPDWORD values, LPDWORD longestValueName, LPDWORD longestData, LPDWORD securitySize,
        FILETIME * lastWrite);

    /// Sets `event` at the next change of `filter`'s kinds to the key or, with `subtree`, below it: keys made or
    /// deleted (REG_NOTIFY_CHANGE_NAME), values (REG_NOTIFY_CHANGE_LAST_SET). Also when the key is deleted or the
    /// handle closed. Changes by other processes are noticed within a tenth of a second. Without `asynchronous` the
    /// call itself waits for the change.
    KVCORE_API LSTATUS WINAPI
    RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous);

    /// Delete the key at `path` with all that is below it, as a whole or not at all; without a path, what is in the key
    /// itself. SHDeleteEmptyKeyW deletes a key with nothing below it: ERROR_KEY_HAS_CHILDREN.
    KVCORE_API DWORD WINAPI SHDeleteKeyW(HKEY key, LPCWSTR path);
    KVCORE_API DWORD WINAPI SHDeleteEmptyKeyW(HKEY key, LPCWSTR path);
}
