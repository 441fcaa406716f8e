#pragma once

// Local and global memory blocks.

#include <kvcore/platform/include/basetypes.h>

#define LMEM_FIXED 0x0000u
#define LMEM_MOVEABLE 0x0002u
#define LMEM_ZEROINIT 0x0040u
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)
#define LHND (LMEM_MOVEABLE | LMEM_ZEROINIT)
#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_ZEROINIT 0x0040u
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)

// A fixed block is named by its address. A moveable one is named by a handle; its address is what Lock returns, and
// stands only while it is locked. A moveable block of size 0 is discarded: it has a handle, but no memory until it
// grows.
//
// A handle that names no live block gives ERROR_INVALID_HANDLE, never a fault. Any thread may use any block; the calls
// exclude one another.

extern "C"
{
    /// A new block of `size` bytes, or null with ERROR_NOT_ENOUGH_MEMORY. Its bytes are 0 with LMEM_ZEROINIT and
    /// undefined else.
    KVCORE_API HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size);

    /// Changes the size, and returns the block's handle or, a fixed block being moved, its new one. Null, with the
    /// block as it was, if there is no memory, or if a fixed or locked block would have to move and LMEM_MOVEABLE does
    /// not allow it. LMEM_ZEROINIT clears what is added. A size of 0 with LMEM_MOVEABLE discards an unlocked moveable
    /// block.
    KVCORE_API HLOCAL WINAPI LocalReAlloc(HLOCAL memory, SIZE_T size, UINT flags);

    /// Ends the block, locked or not, and returns null; the handle itself on failure. Null is no block and no failure.
    KVCORE_API HLOCAL WINAPI LocalFree(HLOCAL memory);

    /// The block's address; a moveable block stays there until it is unlocked as often as it was locked (at most 255
    /// times). Null with ERROR_DISCARDED for a discarded block.
    KVCORE_API LPVOID WINAPI LocalLock(HLOCAL memory);

    /// Takes back one lock. TRUE if the block is still locked. FALSE with NO_ERROR if it is not any more, with
    /// ERROR_NOT_LOCKED if it was not or is fixed.
    KVCORE_API BOOL WINAPI LocalUnlock(HLOCAL memory);

    /// The size in bytes as it was asked for, or 0.
    KVCORE_API SIZE_T WINAPI LocalSize(HLOCAL memory);

    /// The handle of the block that begins at `address`, or null with the last error set.
    KVCORE_API HLOCAL WINAPI LocalHandle(LPCVOID address);

    /// The same blocks under their other name, with the differences of the two: a fixed block has at least one byte,
    /// and unlocking it gives TRUE.
    KVCORE_API HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size);
    KVCORE_API HGLOBAL WINAPI GlobalReAlloc(HGLOBAL memory, SIZE_T size, UINT flags);
    KVCORE_API HGLOBAL WINAPI GlobalFree(HGLOBAL memory);
    KVCORE_API LPVOID WINAPI GlobalLock(HGLOBAL memory);
    KVCORE_API BOOL WINAPI GlobalUnlock(HGLOBAL memory);
    KVCORE_API SIZE_T WINAPI GlobalSize(HGLOBAL memory);
    KVCORE_API HGLOBAL WINAPI GlobalHandle(LPCVOID address);
}
