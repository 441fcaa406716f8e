// The classes of the document object model, and what their interfaces are called.

#include <kvcore/platform/linux/com/BuiltInClasses.h>

#include "Document.h"

using namespace kv::platform;

extern "C" CLSID const CLSID_DOMDocument40 = {
    0x88D969C0, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
extern "C" CLSID const CLSID_XMLSchemaCache40 = {
    0x88D969C2, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
extern "C" IID const IID_IXMLDOMNode = {0x2933BF80, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
extern "C" IID const IID_IXMLDOMDocument = {
    0x2933BF81, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
extern "C" IID const IID_IXMLDOMDocument2 = {
    0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
extern "C" IID const IID_IXMLDOMNodeList = {
    0x2933BF82, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
extern "C" IID const IID_IXMLDOMElement = {
    0x2933BF86, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};
extern "C" IID const IID_IXMLDOMParseError = {
    0x3EFAA426, 0x272F, 0x11D2, {0x83, 0x6F, 0x00, 0x00, 0xF8, 0x7A, 0x77, 0x82}};
extern "C" IID const IID_IXMLDOMSchemaCollection = {
    0x373984C8, 0xB845, 0x449B, {0x91, 0xE7, 0x45, 0xAC, 0x83, 0x03, 0x6A, 0xDE}};
extern "C" IID const IID_IStream = {0x0000000C, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
extern "C" IID const IID_ISequentialStream = {
    0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
extern "C" IID const IID_IPersistStreamInit = {
    0x7FD52380, 0x4E07, 0x101B, {0xAE, 0x2D, 0x08, 0x00, 0x2B, 0x2E, 0xC7, 0x13}};

namespace
{

IUnknown * NewDocument()
{
    return static_cast<IXMLDOMDocument2 *>(new Document);
}

/// A class object. It lives as long as the process, so it is not counted.
class Factory final : public IClassFactory
{
public:
    explicit Factory(IUnknown * (*newObject)()) : make(newObject) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        *object = iid == IID_IUnknown || iid == IID_IClassFactory ? this : nullptr;
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return 2;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return 1;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown * outer, REFIID iid, void ** object) override
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer != nullptr)
        {
            return CLASS_E_NOAGGREGATION;
        }
        return Guarded(
            [&]
            {
                IUnknown * const created = make();
                HRESULT const result = created->QueryInterface(iid, object);
                created->Release();
                return result;
            });
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override
    {
        return S_OK;
    }

private:
    IUnknown * (*const make)();
};

} // namespace

namespace kv::platform
{

IClassFactory * BuiltInClassObject(REFCLSID id) noexcept
{
    static Factory documents(NewDocument);
    static Factory collections(NewSchemaCollection);
    return id == CLSID_DOMDocument40 ? &documents : id == CLSID_XMLSchemaCache40 ? &collections : nullptr;
}

} // namespace kv::platform
