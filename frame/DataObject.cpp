#include <kvcore/frame/DataObject.h>

#include <kvcore/platform/win32.h>

GUID const IID_DataObject = {0x7CADFC7D, 0xB1F1, 0x4010, {0xBA, 0x9C, 0xC8, 0x79, 0xE1, 0x1A, 0xB6, 0xB1}};

DataObject::DataObject() : refCount(1) {}

DataObject::~DataObject() = default;

HRESULT STDMETHODCALLTYPE DataObject::QueryInterface(REFIID iid, void ** result)
{
    if (iid == IID_IUnknown || iid == IID_IDataObject)
    {
        *result = static_cast<IDataObject *>(this);
    }
    else if (iid == IID_DataObject)
    {
        *result = this;
    }
    else
    {
        *result = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG STDMETHODCALLTYPE DataObject::AddRef()
{
    return ULONG(++refCount);
}

ULONG STDMETHODCALLTYPE DataObject::Release()
{
    LONG const count = --refCount;
    if (count == 0)
    {
        delete this;
    }
    return ULONG(count);
}

HRESULT STDMETHODCALLTYPE DataObject::GetData(FORMATETC *, STGMEDIUM *)
{
    return E_INVALIDARG;
}

HRESULT STDMETHODCALLTYPE DataObject::GetDataHere(FORMATETC *, STGMEDIUM *)
{
    return E_INVALIDARG;
}

HRESULT STDMETHODCALLTYPE DataObject::QueryGetData(FORMATETC *)
{
    return E_INVALIDARG;
}

HRESULT STDMETHODCALLTYPE DataObject::GetCanonicalFormatEtc(FORMATETC *, FORMATETC *)
{
    return E_INVALIDARG;
}

HRESULT STDMETHODCALLTYPE DataObject::SetData(FORMATETC *, STGMEDIUM *, BOOL)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DataObject::EnumFormatEtc(DWORD, IEnumFORMATETC ** formats)
{
    *formats = nullptr;
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DataObject::DAdvise(FORMATETC *, DWORD, IAdviseSink *, DWORD *)
{
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE DataObject::DUnadvise(DWORD)
{
    return OLE_E_ADVISENOTSUPPORTED;
}

HRESULT STDMETHODCALLTYPE DataObject::EnumDAdvise(IEnumSTATDATA ** connections)
{
    *connections = nullptr;
    return OLE_E_ADVISENOTSUPPORTED;
}
