#pragma once

// Pages of memory: reserving and committing them, and what lies at an address.
//
// A page has 4,096 bytes. What fails gives null, FALSE or 0 with the last error set. Any thread may call anything.

#include <kvcore/platform/include/basetypes.h>

#define PAGE_NOACCESS 0x01u
#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define PAGE_WRITECOPY 0x08u
#define PAGE_EXECUTE 0x10u
#define PAGE_EXECUTE_READ 0x20u
#define PAGE_EXECUTE_READWRITE 0x40u
#define PAGE_EXECUTE_WRITECOPY 0x80u
#define PAGE_NOCACHE 0x200u
#define PAGE_WRITECOMBINE 0x400u

#define MEM_COMMIT 0x00001000u
#define MEM_RESERVE 0x00002000u
#define MEM_DECOMMIT 0x00004000u
#define MEM_RELEASE 0x00008000u
#define MEM_FREE 0x00010000u
#define MEM_PRIVATE 0x00020000u
#define MEM_MAPPED 0x00040000u
#define MEM_IMAGE 0x01000000u

/// Pages in a row that are alike.
struct MEMORY_BASIC_INFORMATION
{
    PVOID BaseAddress;
    PVOID AllocationBase;
    DWORD AllocationProtect;
    SIZE_T RegionSize;
    DWORD State;
    DWORD Protect;
    DWORD Type;
};
static_assert(sizeof(MEMORY_BASIC_INFORMATION) == 48 && offsetof(MEMORY_BASIC_INFORMATION, RegionSize) == 24);
typedef MEMORY_BASIC_INFORMATION * PMEMORY_BASIC_INFORMATION;

extern "C"
{
    /// Reserves pages (MEM_RESERVE), commits reserved ones (MEM_COMMIT), or both at once. Without an address the system
    /// finds one, a multiple of 64 KiB; with one, it is rounded down to that where pages are reserved, and to the page
    /// where they are committed. Committed pages are zero, and those that were committed before keep what they hold.
    ///
    /// ERROR_INVALID_ADDRESS if the place is taken, or is to be committed and is not within one reservation;
    /// ERROR_INVALID_PARAMETER for a size of 0, a protection that is none, and an address that no program has;
    /// ERROR_NOT_ENOUGH_MEMORY.
    KVCORE_API LPVOID WINAPI VirtualAlloc(LPVOID address, SIZE_T size, DWORD type, DWORD protection);

    /// MEM_RELEASE ends the reservation that begins at `address`; `size` must be 0. MEM_DECOMMIT gives the pages back
    /// and leaves them reserved; with a size of 0, all of the reservation that begins at `address`.
    /// ERROR_INVALID_ADDRESS if a reservation is to be named and `address` is not where it begins,
    /// ERROR_INVALID_PARAMETER for what VirtualAlloc did not give.
    KVCORE_API BOOL WINAPI VirtualFree(LPVOID address, SIZE_T size, DWORD type);

    /// Changes what may be done with committed pages of one allocation, and gives what might be done with the first of
    /// them before. A view of a file may do less than it was mapped for, and nothing more. The modifiers for caches are
    /// accepted and mean nothing. ERROR_INVALID_PARAMETER for pages that lie in no allocation or not in one, and for a
    /// protection that is none; ERROR_INVALID_ADDRESS if one is not committed; `old` is needed (ERROR_NOACCESS).
    KVCORE_API BOOL WINAPI VirtualProtect(LPVOID address, SIZE_T size, DWORD protection, DWORD * old);

    /// Describes the pages from the one of `address` on that are alike, and gives the size of the record. 0 with
    /// ERROR_INVALID_PARAMETER beyond the last address of a program, with ERROR_BAD_LENGTH for a record that is too
    /// short.
    ///
    /// The allocation is what was made at once: a reservation, a mapping, a whole module, whose base is its handle
    /// then. An address inside a module is answered from the module's own headers, without asking the kernel, and so
    /// with the protection that it was loaded with.
    ///
    /// Who walks from the lowest address, from region to region, sees the address space as it was at the first call,
    /// but for what this header and the loader changed since: the kernel is asked once in a walk. Every other call asks
    /// anew.
    KVCORE_API SIZE_T WINAPI VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION * information, SIZE_T size);
}
