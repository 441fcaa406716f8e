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

extern "C"
{
    KVCORE_API HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size);
    KVCORE_API HLOCAL WINAPI LocalReAlloc(HLOCAL memory, SIZE_T size, UINT flags);
    KVCORE_API HLOCAL WINAPI LocalFree(HLOCAL memory);
    KVCORE_API LPVOID WINAPI LocalLock(HLOCAL memory);
    KVCORE_API BOOL WINAPI LocalUnlock(HLOCAL memory);
    KVCORE_API SIZE_T WINAPI LocalSize(HLOCAL memory);
    KVCORE_API HLOCAL WINAPI LocalHandle(LPCVOID address);
    KVCORE_API HGLOBAL WINAPI GlobalAlloc(UINT flags, SIZE_T size);
    KVCORE_API HGLOBAL WINAPI GlobalReAlloc(HGLOBAL memory, SIZE_T size, UINT flags);
    KVCORE_API HGLOBAL WINAPI GlobalFree(HGLOBAL memory);
    KVCORE_API LPVOID WINAPI GlobalLock(HGLOBAL memory);
    KVCORE_API BOOL WINAPI GlobalUnlock(HGLOBAL memory);
    KVCORE_API SIZE_T WINAPI GlobalSize(HGLOBAL memory);
    KVCORE_API HGLOBAL WINAPI GlobalHandle(LPCVOID address);
}
