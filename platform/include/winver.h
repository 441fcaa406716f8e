#pragma once

// The version block that a module carries.

#include <kvcore/platform/include/basetypes.h>

#define VS_FFI_SIGNATURE 0xFEEF04BDu
#define VS_FFI_STRUCVERSION 0x00010000u
#define VS_VERSION_INFO 1

/// The part of a version block that has the same fields in every one.
struct VS_FIXEDFILEINFO
{
    DWORD dwSignature;
    DWORD dwStrucVersion;
    DWORD dwFileVersionMS;
    DWORD dwFileVersionLS;
    DWORD dwProductVersionMS;
    DWORD dwProductVersionLS;
    DWORD dwFileFlagsMask;
    DWORD dwFileFlags;
    DWORD dwFileOS;
    DWORD dwFileType;
    DWORD dwFileSubtype;
    DWORD dwFileDateMS;
    DWORD dwFileDateLS;
};
static_assert(sizeof(VS_FIXEDFILEINFO) == 52);

extern "C"
{
    /// The size of the version block of a file, which may be any that LoadLibraryW takes; `zero` becomes 0, if given.
    /// 0 with ERROR_FILE_NOT_FOUND, or ERROR_RESOURCE_DATA_NOT_FOUND and the like if it has none.
    KVCORE_API DWORD WINAPI GetFileVersionInfoSizeW(LPCWSTR file, LPDWORD zero);

    /// Copies the block, or the `size` bytes of it that fit. `ignored` is not looked at.
    KVCORE_API BOOL WINAPI GetFileVersionInfoW(LPCWSTR file, DWORD ignored, DWORD size, LPVOID block);

    /// Finds a value in such a block: `\` is the VS_FIXEDFILEINFO, `\VarFileInfo\Translation` the languages,
    /// `\StringFileInfo\`, language and code page as eight digits, `\` and a name a text. Case does not matter.
    /// `length` is in bytes, of a text in elements with its NUL. FALSE with ERROR_RESOURCE_TYPE_NOT_FOUND and a length
    /// of 0 if it is not there.
    KVCORE_API BOOL WINAPI VerQueryValueW(LPCVOID block, LPCWSTR name, LPVOID * value, UINT * length);
}
