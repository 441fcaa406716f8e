#pragma once

#include <kvcore/core/KVUnknown.h>
#include <kvcore/platform/dataobject.h>
#include <kvcore/platform/export.h>

/// By which code in the same process gets from an IDataObject back to the DataObject that it is:
/// 7CADFC7D-B1F1-4010-BA9C-C879E11AB6B1. What QueryInterface stores for it is the object's address, not an interface.
extern KVCORE_API GUID const IID_DataObject;

// That IUnknown is ambiguous is meant. Not only here: g++ would tell it of every class that derives from this one.
#ifdef __GNUC__
#    pragma GCC diagnostic ignored "-Winaccessible-base"
#endif

/// An object for the clipboard and for dragging. It refuses everything, so that a derived class overrides what it
/// supports.
///
/// Born with a count of 1, which belongs to its creator. Kept: the count is its own and no atomic one, unlike that of
/// the base: a data object belongs to one thread. Its IUnknown is that of IDataObject; the base has another one, which
/// answers in the same way.
///
/// Kept: so a DataObject pointer does not convert to one of IUnknown by itself; IDataObject's is the one to take.
class KVCORE_API DataObject : public IDataObject, public KVUnknown
{
public:
    DataObject();
    DataObject(DataObject const &) = delete;
    DataObject & operator=(DataObject const &) = delete;
    ~DataObject() override;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** result) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    /// The new count; at 0 the object is deleted.
    ULONG STDMETHODCALLTYPE Release() override;

    /// E_INVALIDARG.
    HRESULT STDMETHODCALLTYPE GetData(FORMATETC * format, STGMEDIUM * medium) override;
    HRESULT STDMETHODCALLTYPE GetDataHere(FORMATETC * format, STGMEDIUM * medium) override;
    HRESULT STDMETHODCALLTYPE QueryGetData(FORMATETC * format) override;
    HRESULT STDMETHODCALLTYPE GetCanonicalFormatEtc(FORMATETC * format, FORMATETC * canonical) override;
    /// E_NOTIMPL.
    HRESULT STDMETHODCALLTYPE SetData(FORMATETC * format, STGMEDIUM * medium, BOOL release) override;
    /// E_NOTIMPL, and null.
    HRESULT STDMETHODCALLTYPE EnumFormatEtc(DWORD direction, IEnumFORMATETC ** formats) override;
    /// E_NOTIMPL.
    HRESULT STDMETHODCALLTYPE DAdvise(FORMATETC * format, DWORD flags, IAdviseSink * sink, DWORD * connection) override;
    /// OLE_E_ADVISENOTSUPPORTED; EnumDAdvise with null.
    HRESULT STDMETHODCALLTYPE DUnadvise(DWORD connection) override;
    HRESULT STDMETHODCALLTYPE EnumDAdvise(IEnumSTATDATA ** connections) override;

private:
    LONG refCount;
};
