#pragma once

// The records and interfaces of the clipboard and of dragging.

#include <kvcore/platform/include/objbase.h>

#define OLE_E_ADVISENOTSUPPORTED ((HRESULT)0x80040003u)

typedef WORD CLIPFORMAT;
typedef struct HBITMAP__ * HBITMAP;
typedef struct HENHMETAFILE__ * HENHMETAFILE;
struct DVTARGETDEVICE;
struct IStream;
struct IStorage;
struct IMoniker;

/// A format of data, and for what.
struct FORMATETC
{
    CLIPFORMAT cfFormat;
    DVTARGETDEVICE * ptd;
    DWORD dwAspect;
    LONG lindex;
    DWORD tymed;
};
static_assert(sizeof(FORMATETC) == 32);

/// Data in one of several kinds of memory, `tymed` telling which.
struct STGMEDIUM
{
    DWORD tymed;
    union
    {
        HBITMAP hBitmap;
        HANDLE hMetaFilePict;
        HENHMETAFILE hEnhMetaFile;
        HGLOBAL hGlobal;
        LPOLESTR lpszFileName;
        IStream * pstm;
        IStorage * pstg;
    };
    IUnknown * pUnkForRelease;
};
static_assert(sizeof(STGMEDIUM) == 24);

/// A connection between a source of data and who is told of changes.
struct IAdviseSink;
struct STATDATA
{
    FORMATETC formatetc;
    DWORD advf;
    IAdviseSink * pAdvSink;
    DWORD dwConnection;
};

/// Goes through formats.
struct IEnumFORMATETC : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, FORMATETC * formats, ULONG * fetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumFORMATETC ** copy) = 0;
};

/// Goes through connections.
struct IEnumSTATDATA : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, STATDATA * connections, ULONG * fetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumSTATDATA ** copy) = 0;
};

/// Is told of changes.
struct IAdviseSink : IUnknown
{
    virtual void STDMETHODCALLTYPE OnDataChange(FORMATETC * format, STGMEDIUM * medium) = 0;
    virtual void STDMETHODCALLTYPE OnViewChange(DWORD aspect, LONG index) = 0;
    virtual void STDMETHODCALLTYPE OnRename(IMoniker * moniker) = 0;
    virtual void STDMETHODCALLTYPE OnSave() = 0;
    virtual void STDMETHODCALLTYPE OnClose() = 0;
};

/// Data that can be had in formats.
struct IDataObject : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetData(FORMATETC * format, STGMEDIUM * medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC * format, STGMEDIUM * medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC * format) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC * format, FORMATETC * canonical) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetData(FORMATETC * format, STGMEDIUM * medium, BOOL release) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD direction, IEnumFORMATETC ** formats) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    DAdvise(FORMATETC * format, DWORD flags, IAdviseSink * sink, DWORD * connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE DUnadvise(DWORD connection) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA ** connections) = 0;
};

/// 0000010E-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IDataObject;
