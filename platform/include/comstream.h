#pragma once

// The byte stream of COM.

#include <kvcore/platform/include/objbase.h>

#define STG_E_INVALIDFUNCTION ((HRESULT)0x80030001u)
#define STG_E_INVALIDPOINTER ((HRESULT)0x80030009u)

/// Bytes in and out.
struct ISequentialStream : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Read(void * data, ULONG size, ULONG * read) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(void const * data, ULONG size, ULONG * written) = 0;
};

/// What is known of a stream.
struct STATSTG
{
    LPOLESTR pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
};
static_assert(sizeof(STATSTG) == 80);

/// A byte stream with a position.
struct IStream : ISequentialStream
{
    virtual HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER * position) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    CopyTo(IStream * target, ULARGE_INTEGER size, ULARGE_INTEGER * read, ULARGE_INTEGER * written) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit(DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Revert() = 0;
    virtual HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD kind) = 0;
    virtual HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER size, DWORD kind) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stat(STATSTG * status, DWORD flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IStream ** copy) = 0;
};

/// 0000000C-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IStream;
/// 0C733A30-2A1C-11CE-ADE5-00AA0044773D
extern "C" KVCORE_API IID const IID_ISequentialStream;

/// An object that has a class.
struct IPersist : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID * id) = 0;
};

/// An object that is loaded from a stream, or starts empty.
struct IPersistStreamInit : IPersist
{
    virtual HRESULT STDMETHODCALLTYPE IsDirty() = 0;
    virtual HRESULT STDMETHODCALLTYPE Load(IStream * stream) = 0;
    virtual HRESULT STDMETHODCALLTYPE Save(IStream * stream, BOOL clearDirty) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER * size) = 0;
    virtual HRESULT STDMETHODCALLTYPE InitNew() = 0;
};

/// 7FD52380-4E07-101B-AE2D-08002B2EC713
extern "C" KVCORE_API IID const IID_IPersistStreamInit;
