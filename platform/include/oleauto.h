#pragma once

// Automation: texts with their length, values of any type, and reports of failures.

#include <kvcore/platform/include/objbase.h>

#define DISP_E_MEMBERNOTFOUND ((HRESULT)0x80020003u)
#define DISP_E_TYPEMISMATCH ((HRESULT)0x80020005u)
#define DISP_E_UNKNOWNNAME ((HRESULT)0x80020006u)
#define DISP_E_BADVARTYPE ((HRESULT)0x80020008u)
#define DISP_E_BADINDEX ((HRESULT)0x8002000Bu)

/// A text whose length stands in front of it, made by SysAllocString. Null is a text without elements.
typedef WCHAR * BSTR;

typedef short VARIANT_BOOL;
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

typedef unsigned short VARTYPE;
typedef LONG DISPID;
struct IDispatch;

/// What a VARIANT holds.
enum VARENUM
{
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_BOOL = 11,
    VT_UNKNOWN = 13,
    VT_UI4 = 19,
};

#ifdef __clang__ // which warns of a form that all compilers of these targets take
#    pragma clang diagnostic push
#    pragma clang diagnostic ignored "-Wnested-anon-types"
#endif
/// A value of one of the types above.
struct VARIANT
{
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union
    {
        SHORT iVal;
        LONG lVal;
        ULONG ulVal;
        VARIANT_BOOL boolVal;
        BSTR bstrVal;
        IUnknown * punkVal;
        IDispatch * pdispVal;
        __extension__ struct
        {
            PVOID pvRecord; // two pointers is the size of the largest value
            PVOID pRecInfo;
        };
    };
};
#ifdef __clang__
#    pragma clang diagnostic pop
#endif
static_assert(sizeof(VARIANT) == 24);
typedef VARIANT VARIANTARG;

struct ITypeInfo;
struct DISPPARAMS;
struct EXCEPINFO;

/// Calls by name. The objects of this system are for callers that know their interfaces: they have no type information,
/// and know no names.
struct IDispatch : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT * count) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo ** info) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    GetIDsOfNames(REFIID iid, LPOLESTR * names, UINT count, LCID locale, DISPID * ids) = 0;
    virtual HRESULT STDMETHODCALLTYPE Invoke(
        DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS * parameters, VARIANT * result,
        EXCEPINFO * exception, UINT * wrongArgument) = 0;
};

/// 00020400-0000-0000-C000-000000000046
extern "C" KVCORE_API IID const IID_IDispatch;

/// What is known of a failure.
struct IErrorInfo : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID * interfaceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR * source) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR * description) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR * file) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD * context) = 0;
};

/// 1CF2B120-547D-101B-8E65-08002B2BD119
extern "C" KVCORE_API IID const IID_IErrorInfo;

/// Tells of which interfaces an object leaves reports.
struct ISupportErrorInfo : IUnknown
{
    /// S_OK or S_FALSE.
    virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) = 0;
};

/// DF0B3D60-548F-101B-8E65-08002B2BD119
extern "C" KVCORE_API IID const IID_ISupportErrorInfo;

extern "C"
{
    /// A copy of the text up to its NUL, or of `length` elements (of zeros, for a null `text`), with a NUL behind it.
    /// The caller releases it with SysFreeString. Null for a null text, or if memory runs out.
    KVCORE_API BSTR WINAPI SysAllocString(WCHAR const * text);
    KVCORE_API BSTR WINAPI SysAllocStringLen(WCHAR const * text, UINT length);
    /// Null is accepted.
    KVCORE_API void WINAPI SysFreeString(BSTR text);
    /// The number of elements without the NUL at the end; 0 for null.
    KVCORE_API UINT WINAPI SysStringLen(BSTR text);

    /// Sets the type to VT_EMPTY, without a look at what was there.
    KVCORE_API void WINAPI VariantInit(VARIANT * value);
    /// Releases the text or object that it holds, and sets the type to VT_EMPTY. DISP_E_BADVARTYPE for a type that no
    /// value has; then nothing changes.
    KVCORE_API HRESULT WINAPI VariantClear(VARIANT * value);

    /// Leaves a report for the calling thread, in place of the one before; null leaves none. `reserved` is 0, and
    /// E_INVALIDARG the result of any other, here and below.
    KVCORE_API HRESULT WINAPI SetErrorInfo(ULONG reserved, IErrorInfo * report);
    /// Takes the calling thread's report away: S_OK, or S_FALSE and null if there is none.
    KVCORE_API HRESULT WINAPI GetErrorInfo(ULONG reserved, IErrorInfo ** report);
}
