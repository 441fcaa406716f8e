#pragma once

// Win32's value types, as its documentation publishes them. Everything that Win32 calls 32 bits wide is 32 bits wide
// here, `LONG` and `DWORD` too; the language's own `long` is not used for them.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <kvcore/platform/export.h>

/// A UTF-16 code unit.
typedef char16_t WCHAR;

/// Makes a literal of WCHAR elements on every target.
#define TEXT(literal) u##literal

/// Macros, as on Windows, because `unsigned __int64` must read as a type.
#define __int64 long long

typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef std::uint32_t DWORD;
typedef int INT;
typedef unsigned int UINT;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef short SHORT;
typedef unsigned short USHORT;
typedef unsigned char UCHAR;
typedef char CHAR;
typedef float FLOAT;
typedef __int64 LONGLONG;
typedef unsigned __int64 ULONGLONG;
typedef __int64 INT64;
typedef unsigned __int64 UINT64;
typedef std::intptr_t INT_PTR;
typedef std::uintptr_t UINT_PTR;
typedef std::intptr_t LONG_PTR;
typedef std::uintptr_t ULONG_PTR;
typedef std::uintptr_t DWORD_PTR;
typedef std::uintptr_t SIZE_T;
typedef std::int32_t HRESULT;
typedef DWORD LCID;
typedef DWORD LCTYPE;
typedef WORD LANGID;

typedef void * LPVOID;
typedef void const * LPCVOID;
typedef void * PVOID;
typedef BOOL * LPBOOL;
typedef DWORD * LPDWORD;
typedef CHAR * LPSTR;
typedef CHAR const * LPCSTR;
typedef CHAR const * LPCCH;
typedef WCHAR * LPWSTR;
typedef WCHAR const * LPCWSTR;
typedef WCHAR const * LPCWCH;
typedef WCHAR * LPOLESTR;
typedef WCHAR const * LPCOLESTR;
typedef WCHAR OLECHAR;
typedef void * HANDLE;
typedef HANDLE HLOCAL;
typedef HANDLE HGLOBAL;

/// A key of the registry.
typedef struct HKEY__ * HKEY;
typedef HKEY * PHKEY;

/// A window. This system has none; calls that take an owner for their messages take null.
typedef struct HWND__ * HWND;

/// A module: the address that its file lies at in memory.
typedef struct HINSTANCE__ * HINSTANCE;
typedef HINSTANCE HMODULE;
/// A place in a module's resources.
typedef struct HRSRC__ * HRSRC;
/// A table of keys that stand for commands.
typedef struct HACCEL__ * HACCEL;
/// A function of a module, to be cast to its own type.
typedef INT_PTR (*FARPROC)();

#ifndef TRUE
#    define TRUE 1
#endif
#ifndef FALSE
#    define FALSE 0
#endif

#define WINAPI
#define CALLBACK
#define STDMETHODCALLTYPE
#define STDAPICALLTYPE

/// A globally unique identifier, 16 bytes, laid out as it is stored.
struct GUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);

typedef GUID IID;
typedef GUID CLSID;
typedef GUID const & REFGUID;
typedef GUID const & REFIID;
typedef GUID const & REFCLSID;

inline bool operator==(GUID const & left, GUID const & right)
{
    return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}
inline bool operator!=(GUID const & left, GUID const & right)
{
    return !(left == right);
}
inline bool IsEqualGUID(REFGUID left, REFGUID right)
{
    return left == right;
}
#define IsEqualIID(left, right) IsEqualGUID(left, right)

/// A calendar date and time of day. Weekdays count from Sunday, which is 0.
struct SYSTEMTIME
{
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
static_assert(sizeof(SYSTEMTIME) == 16);

/// Ticks of 100 nanoseconds since 1601-01-01 UTC, in two halves.
struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
static_assert(sizeof(FILETIME) == 8);

static_assert(sizeof(LONG) == 4 && sizeof(DWORD) == 4 && sizeof(HRESULT) == 4 && sizeof(WCHAR) == 2);

/// A 64-bit number that may be seen in halves.
union LARGE_INTEGER
{
    __extension__ struct
    {
        DWORD LowPart;
        LONG HighPart;
    };
    struct
    {
        DWORD LowPart;
        LONG HighPart;
    } u;
    __int64 QuadPart;
};
union ULARGE_INTEGER
{
    __extension__ struct
    {
        DWORD LowPart;
        DWORD HighPart;
    };
    struct
    {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    unsigned __int64 QuadPart;
};

/// What a handle function gives for "none" where 0 may be a handle.
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(-1)))

/// Taken by calls that create something, and not looked at: no handle is inherited, and rights are those of the file
/// system.
struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
typedef SECURITY_ATTRIBUTES * LPSECURITY_ATTRIBUTES;

#ifdef __clang__ // which warns of a form that all compilers of these targets take
#    pragma clang diagnostic push
#    pragma clang diagnostic ignored "-Wnested-anon-types"
#endif
/// One request of overlapped input or output. `Internal` is STATUS_PENDING (259) until it is finished, `InternalHigh`
/// then the bytes transferred.
struct OVERLAPPED
{
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    union
    {
        __extension__ struct
        {
            DWORD Offset;
            DWORD OffsetHigh;
        };
        void * Pointer;
    };
    HANDLE hEvent;
};
#ifdef __clang__
#    pragma clang diagnostic pop
#endif
static_assert(sizeof(OVERLAPPED) == 32);
typedef OVERLAPPED * LPOVERLAPPED;

/// A lock that one thread at a time holds, any number of times over. Its members are for the functions of synchapi.h
/// alone. Must stay where it was initialized.
struct CRITICAL_SECTION
{
    void * DebugInfo;
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
};
static_assert(sizeof(CRITICAL_SECTION) == 40);
typedef CRITICAL_SECTION * LPCRITICAL_SECTION;

#define MAX_PATH 260

/// A directory entry as the find functions give it, 592 bytes.
struct WIN32_FIND_DATAW
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
};
static_assert(sizeof(WIN32_FIND_DATAW) == 592);

/// A place in pixels.
struct tagPOINT
{
    LONG x;
    LONG y;
};
typedef tagPOINT POINT;

/// An extent in pixels.
struct tagSIZE
{
    LONG cx;
    LONG cy;
};
typedef tagSIZE SIZE;

/// A rectangle in pixels. The right and bottom edges are not part of it.
struct tagRECT
{
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
typedef tagRECT RECT;
