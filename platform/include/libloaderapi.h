#pragma once

// Modules, that is, the program and the libraries in its process, and the resources that modules carry.
//
// A module's handle is the address that its file lies at. Three kinds of files load: libraries of this system (ELF);
// Windows' own executables and libraries (PE), whose code is not run and whose resources are served as they are; and
// either of them "as data". A library of this system carries its resources as compiled by `windres`: see the CMake
// function kvcore_add_resources.
//
// Names: a path in Win32's form, or a bare name that is looked for. A last component without a dot gets ".so", and one
// that ends in a dot loses it and gets nothing. Bare names are looked for in the program's folder, then where the
// system looks for libraries, then in the current directory. The names of Windows' own libraries that this layer stands
// in for (kernel32.dll and the like) mean this layer.
//
// A file must not be cut while it is loaded: a touch of what is gone is a hardware fault. Damaged files are found out:
// what points out of the file is not there.
//
// What fails gives null, FALSE or 0 with the last error set. Any thread may call anything, as long as a module that is
// used is not freed. Handle null is the program.

#include <kvcore/platform/include/basetypes.h>

#define DONT_RESOLVE_DLL_REFERENCES 0x00000001u
#define LOAD_LIBRARY_AS_DATAFILE 0x00000002u
#define LOAD_WITH_ALTERED_SEARCH_PATH 0x00000008u
#define LOAD_LIBRARY_AS_IMAGE_RESOURCE 0x00000020u
#define LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE 0x00000040u

#define GET_MODULE_HANDLE_EX_FLAG_PIN 0x00000001u
#define GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT 0x00000002u
#define GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS 0x00000004u

/// A number in the place of a name.
#define IS_INTRESOURCE(name) ((reinterpret_cast<ULONG_PTR>(name) >> 16) == 0)
#define MAKEINTRESOURCEW(number) (reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(number))))
#define MAKEINTRESOURCEA(number) (reinterpret_cast<LPSTR>(static_cast<ULONG_PTR>(static_cast<WORD>(number))))

#define RT_CURSOR MAKEINTRESOURCEW(1)
#define RT_BITMAP MAKEINTRESOURCEW(2)
#define RT_ICON MAKEINTRESOURCEW(3)
#define RT_MENU MAKEINTRESOURCEW(4)
#define RT_DIALOG MAKEINTRESOURCEW(5)
#define RT_STRING MAKEINTRESOURCEW(6)
#define RT_FONTDIR MAKEINTRESOURCEW(7)
#define RT_FONT MAKEINTRESOURCEW(8)
#define RT_ACCELERATOR MAKEINTRESOURCEW(9)
#define RT_RCDATA MAKEINTRESOURCEW(10)
#define RT_MESSAGETABLE MAKEINTRESOURCEW(11)
#define RT_GROUP_CURSOR MAKEINTRESOURCEW(12)
#define RT_GROUP_ICON MAKEINTRESOURCEW(14)
#define RT_VERSION MAKEINTRESOURCEW(16)
#define RT_HTML MAKEINTRESOURCEW(23)
#define RT_MANIFEST MAKEINTRESOURCEW(24)

#define MAKELANGID(primary, sub) (static_cast<WORD>((sub) << 10 | (primary)))
#define PRIMARYLANGID(language) (static_cast<WORD>((language)&0x3FF))
#define SUBLANGID(language) (static_cast<WORD>((language) >> 10))

#define FVIRTKEY 0x01
#define FNOINVERT 0x02
#define FSHIFT 0x04
#define FCONTROL 0x08
#define FALT 0x10

/// One key of an accelerator table.
struct ACCEL
{
    BYTE fVirt;
    WORD key;
    WORD cmd;
};
static_assert(sizeof(ACCEL) == 6);

typedef BOOL(CALLBACK * ENUMRESTYPEPROCW)(HMODULE module, LPWSTR type, LONG_PTR argument);
typedef BOOL(CALLBACK * ENUMRESNAMEPROCW)(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR argument);
typedef BOOL(CALLBACK * ENUMRESLANGPROCW)(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR argument);

extern "C"
{
    /// Loads a library, or counts once more one that is loaded. ERROR_MOD_NOT_FOUND if there is none or one that it
    /// needs is missing, ERROR_BAD_EXE_FORMAT for a file that is none, ERROR_PROC_NOT_FOUND if it needs a function that
    /// nobody has. `reserved` is not looked at.
    ///
    /// A bare name means a file of the program's folder, or else what the system's loader finds in its own places. The
    /// current directory is none of them.
    ///
    /// With one of the LOAD_LIBRARY_AS flags no code runs: the file is mapped for its resources alone, and its handle
    /// has the lowest bit (a data file) or the one above it (an image) set beside the address. It has no path then, and
    /// a file that is missing is ERROR_FILE_NOT_FOUND or ERROR_PATH_NOT_FOUND.
    /// DONT_RESOLVE_DLL_REFERENCES and LOAD_WITH_ALTERED_SEARCH_PATH change nothing here: the system's loader has its
    /// own rules.
    KVCORE_API HMODULE WINAPI LoadLibraryW(LPCWSTR name);
    KVCORE_API HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE reserved, DWORD flags);

    /// Takes back one load. The program, and libraries that were not loaded through here, stay: TRUE without effect.
    /// ERROR_INVALID_HANDLE for null, ERROR_MOD_NOT_FOUND for what is no module.
    KVCORE_API BOOL WINAPI FreeLibrary(HMODULE module);

    /// The address of what a module exports under a name, its own symbols only; ERROR_PROC_NOT_FOUND. There are no
    /// ordinals, and nothing of what is loaded as data.
    KVCORE_API FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);

    /// The handle of a module that is loaded, without counting it; null is the program. ERROR_MOD_NOT_FOUND.
    KVCORE_API HMODULE WINAPI GetModuleHandleW(LPCWSTR name);

    /// The same with a choice: by name or by an address in it, counted (as a load) or not, or counted for ever.
    /// `module` becomes null on failure.
    KVCORE_API BOOL WINAPI GetModuleHandleExW(DWORD flags, LPCWSTR name, HMODULE * module);

    /// The path of a module's file. Gives the length; if it does not fit, it is cut, ends in NUL, and the result is
    /// `capacity` with ERROR_INSUFFICIENT_BUFFER. ERROR_MOD_NOT_FOUND for what is no module.
    KVCORE_API DWORD WINAPI GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD capacity);

    /// Finds a resource by type and name: a number (MAKEINTRESOURCEW), a text in any case, or a text "#12" that is a
    /// number. ERROR_RESOURCE_DATA_NOT_FOUND for a module without resources, ERROR_RESOURCE_TYPE_NOT_FOUND,
    /// ERROR_RESOURCE_NAME_NOT_FOUND, ERROR_RESOURCE_LANG_NOT_FOUND.
    ///
    /// Of several languages FindResourceExW takes the one that is asked for, else its primary language, else the
    /// neutral one. Where none is asked for (a primary language of 0), the neutral one is taken, else the user's, its
    /// primary language, English of the United States, English, and at last the one with the lowest number.
    KVCORE_API HRSRC WINAPI FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type);
    KVCORE_API HRSRC WINAPI FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language);

    /// The size in bytes, and the address; both are good as long as the module is loaded. Null is no resource, and not
    /// an error. There is nothing to unlock; FreeResource does nothing and gives FALSE.
    KVCORE_API DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource);
    KVCORE_API HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource);
    KVCORE_API LPVOID WINAPI LockResource(HGLOBAL data);
    KVCORE_API BOOL WINAPI FreeResource(HGLOBAL data);

    /// Call `function` for each type, each name of a type, each language of a resource: texts before numbers, each in
    /// order. FALSE if there is none, with the errors of FindResourceW, and if the function gave FALSE, which ends it.
    KVCORE_API BOOL WINAPI EnumResourceTypesW(HMODULE module, ENUMRESTYPEPROCW function, LONG_PTR argument);
    KVCORE_API BOOL WINAPI
    EnumResourceNamesW(HMODULE module, LPCWSTR type, ENUMRESNAMEPROCW function, LONG_PTR argument);
    KVCORE_API BOOL WINAPI
    EnumResourceLanguagesW(HMODULE module, LPCWSTR type, LPCWSTR name, ENUMRESLANGPROCW function, LONG_PTR argument);

    /// Copies a string of the module's string table and gives its length, cut to `capacity` - 1. With a capacity of 0
    /// `buffer` is the address of a pointer that is set to the string itself, which no NUL ends. 0 if it is missing,
    /// with the errors of FindResourceW, or empty.
    KVCORE_API int WINAPI LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int capacity);

    /// A table of keys from a module's resources; it belongs to the caller.
    KVCORE_API HACCEL WINAPI LoadAcceleratorsW(HINSTANCE module, LPCWSTR name);
    KVCORE_API BOOL WINAPI DestroyAcceleratorTable(HACCEL table);
    /// Copies at most `count` keys and gives how many; without `keys`, how many there are.
    KVCORE_API int WINAPI CopyAcceleratorTableW(HACCEL table, ACCEL * keys, int count);
}
