#pragma once

// The shell's functions on texts that are paths or URLs. They look at the text alone, never at a file. All of them may
// be called from any thread.

#include <kvcore/platform/include/objbase.h>

/// UrlCombineW leaves "." and ".." where they are.
#define URL_DONT_SIMPLIFY 0x08000000u

extern "C"
{
    /// Whether the path is a root and nothing more: "\", "c:\", "\\server", "\\server\share". Only backslashes count.
    KVCORE_API BOOL WINAPI PathIsRootW(LPCWSTR path);

    /// Cuts the path back to its root. FALSE, with what is left of the path, if it has none: "c:a" leaves "c:" and
    /// "a\b" leaves nothing.
    KVCORE_API BOOL WINAPI PathStripToRootW(LPWSTR path);

    /// FALSE for what begins with a backslash or has a colon as its second character.
    KVCORE_API BOOL WINAPI PathIsRelativeW(LPCWSTR path);

    /// The part behind the last separator ('\', '/' or ':'); one at the very end belongs to the name.
    KVCORE_API LPWSTR WINAPI PathFindFileNameW(LPCWSTR path);

    /// The last '.' of the path's last part, or the path's end. Blanks and backslashes end a part.
    KVCORE_API LPWSTR WINAPI PathFindExtensionW(LPCWSTR path);

    /// Whether the name matches one of the masks, which semicolons separate: '*' is any text, '?' any character, case
    /// is ignored, and a mask of "*.*" matches every name.
    KVCORE_API BOOL WINAPI PathMatchSpecW(LPCWSTR name, LPCWSTR masks);

    /// Whether the text begins with a scheme of two characters or more.
    KVCORE_API BOOL WINAPI PathIsURLW(LPCWSTR text);

    /// Shortens a path to at most `capacity` elements, NUL included, by putting "..." in place of what stands before
    /// the file's name, and then of the name's end. `flags` is reserved. FALSE for a null argument or a `capacity` of
    /// 0.
    KVCORE_API BOOL WINAPI PathCompactPathExW(LPWSTR result, LPCWSTR path, UINT capacity, DWORD flags);

    // The URL functions take in `*length` the room of the buffer. S_OK sets it to the text's length without the NUL;
    // E_POINTER to the room that is needed, with nothing written. E_INVALIDARG for a null argument.

    /// "file:" and the path in a URL's characters: "c:\a b" is "file:///c:/a%20b". Of what ASCII lacks, characters
    /// below U+0100 become one escape, others stay. S_FALSE and an unchanged text for what is a URL already. `flags` is
    /// reserved.
    KVCORE_API HRESULT WINAPI UrlCreateFromPathW(LPCWSTR path, LPWSTR url, LPDWORD length, DWORD flags);

    /// The path that a "file:" URL stands for, every escape undone as one character. E_INVALIDARG for any other text.
    /// `flags` is reserved.
    KVCORE_API HRESULT WINAPI PathCreateFromUrlW(LPCWSTR url, LPWSTR path, LPDWORD length, DWORD flags);

    /// The URL that `relative` names beside `base`, by RFC 3986; "c:\a" is an absolute one. Schemes become lower-case,
    /// and backslashes in "file:" and "http:" URLs slashes. E_INVALIDARG for flags other than URL_DONT_SIMPLIFY.
    KVCORE_API HRESULT WINAPI UrlCombineW(LPCWSTR base, LPCWSTR relative, LPWSTR combined, LPDWORD length, DWORD flags);

    /// Takes a command line apart, as programs of Windows do: blanks and tabs separate, quotes keep together, and
    /// backslashes count only in front of a quote, where two are one and one takes the quote as it stands. The first
    /// argument has no escapes. An empty line is the program's own path alone. The result is one block for LocalFree;
    /// null with ERROR_INVALID_PARAMETER without a `count`, or for want of memory.
    KVCORE_API LPWSTR * WINAPI CommandLineToArgvW(LPCWSTR line, int * count);
}
