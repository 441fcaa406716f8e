#pragma once

// Private profiles: settings in text files of sections `[name]` with lines `key=value`.
//
// Section and key names match without regard to case; of several sections or keys of one name the first counts. Spaces
// around names, keys and values do not belong to them. What stands before the first section is the section with the
// empty name. A line end is CR LF, LF or CR, and a missing last one is no loss. A line is cut at a NUL.
//
// A file is UTF-16 of either byte order with a byte-order mark, UTF-8 with one, or without one in the system's code
// page, which is UTF-8 here. A new file has none. What is written takes the encoding of the file, and its line ends:
// those of its first line, CR LF in a new file. Lines that a call has nothing to do with stay as they are to the byte.
//
// A name without any separator means a file in C:\Windows, and no name at all its win.ini. Any other path is one of the
// file calls: relative to the current directory if it is relative.
//
// A write puts the new content in the file's place in one step, so that whoever reads, and whoever comes after a
// process that died in the middle, finds the old content or the new. The file's rights stay, and a link stays a link.
// Nothing is forced to the disk: after a power failure the file system's own rules hold. A file with several hard
// links, and a file in a directory that takes no new ones, is written in place instead, into room that is reserved
// before anything is changed. Writers wait for each other, in this process and in others, and lose nothing of each
// other's. Any thread may call anything.
//
// The last error is ERROR_SUCCESS after a read that worked, else ERROR_FILE_NOT_FOUND or ERROR_PATH_NOT_FOUND if there
// is no such file, ERROR_SHARING_VIOLATION if somebody has it open and does not share it, ERROR_ACCESS_DENIED for what
// may not be read or written or is no file. ERROR_MORE_DATA says that a result was cut.

#include <kvcore/platform/include/basetypes.h>

extern "C"
{
    /// The text of a key, in `buffer` of `capacity` elements, NUL included; `fallback` (null for the empty text),
    /// without the blanks at its end, if there is no such key or file. One pair of quotes around the text, single or
    /// double, is taken off. Gives the length without the NUL, `capacity` - 1 if the text was cut.
    ///
    /// A null `key` lists the section's keys, a null `section` the sections, as the calls below list.
    KVCORE_API DWORD WINAPI GetPrivateProfileStringW(
        LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR buffer, DWORD capacity, LPCWSTR fileName);

    /// The number that the text of a key begins with: a sign, then decimal digits, or others behind 0x, 0o or 0b. It
    /// wraps at 32 bits, and is 0 for a text that is no number. `fallback` for a key that is missing or empty.
    KVCORE_API UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR fileName);

    /// The section's lines, each with a NUL, and a NUL behind the last: `key=value` without blanks at the ends and
    /// around the first `=`, and lines without one, comments among them, without blanks at the ends. Empty lines are
    /// left out. Gives the length without the last NUL; `capacity` - 2 if it was cut, and two NULs then end it.
    KVCORE_API DWORD WINAPI GetPrivateProfileSectionW(LPCWSTR section, LPWSTR buffer, DWORD capacity, LPCWSTR fileName);

    /// The names of all sections but the nameless, in the order of the file, repeated ones too, in the same form.
    KVCORE_API DWORD WINAPI GetPrivateProfileSectionNamesW(LPWSTR buffer, DWORD capacity, LPCWSTR fileName);

    /// Sets the text of a key: in its line if it has one, else in a new line behind the section's last, in a new
    /// section at the end of the file if need be. A null `text` removes the line, a null `key` the section. Nothing is
    /// written if nothing changes. All three null only ends what is kept in memory, and gives FALSE always.
    KVCORE_API BOOL WINAPI WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR text, LPCWSTR fileName);

    /// Makes `lines`, each with a NUL and a NUL behind the last, all that the section holds, as they stand; its
    /// comments and empty lines go. A null `lines` removes the section.
    KVCORE_API BOOL WINAPI WritePrivateProfileSectionW(LPCWSTR section, LPCWSTR lines, LPCWSTR fileName);

    /// Bytes as the text of a key, in hexadecimal, with one more byte that is their sum. Reading fails, with
    /// ERROR_BAD_LENGTH or ERROR_INVALID_DATA, if the text is not that of exactly `size` bytes, or the sum is another.
    KVCORE_API BOOL WINAPI
    GetPrivateProfileStructW(LPCWSTR section, LPCWSTR key, LPVOID data, UINT size, LPCWSTR fileName);
    /// Null `data` removes the key.
    KVCORE_API BOOL WINAPI
    WritePrivateProfileStructW(LPCWSTR section, LPCWSTR key, LPVOID data, UINT size, LPCWSTR fileName);
}
