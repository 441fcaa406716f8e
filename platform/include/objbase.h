#pragma once

// COM: identifiers as text, and result codes.

#include <kvcore/platform/include/unknown.h>

#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_NOINTERFACE ((HRESULT)0x80004002u)
#define E_POINTER ((HRESULT)0x80004003u)
#define E_FAIL ((HRESULT)0x80004005u)
#define E_OUTOFMEMORY ((HRESULT)0x8007000Eu)
#define E_INVALIDARG ((HRESULT)0x80070057u)
#define CO_E_CLASSSTRING ((HRESULT)0x800401F3u)
#define CO_E_IIDSTRING ((HRESULT)0x800401F4u)
#define SUCCEEDED(result) ((HRESULT)(result) >= 0)
#define FAILED(result) ((HRESULT)(result) < 0)

extern "C"
{
    /// Parses "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", in either case. Any other text gives CO_E_CLASSSTRING: no
    /// program names are registered. `id` is all zero then unless the text begins with a brace, in which case it holds
    /// what stands before the first wrong element. A null text gives the all-zero identifier and S_OK; a null `id`
    /// gives E_INVALIDARG.
    KVCORE_API HRESULT WINAPI CLSIDFromString(LPCOLESTR text, CLSID * id);

    /// The same, with E_INVALIDARG for a text that has not 38 elements and CO_E_IIDSTRING for other wrong ones.
    KVCORE_API HRESULT WINAPI IIDFromString(LPCOLESTR text, IID * id);

    /// Prints `id` with braces and upper-case digits, NUL-terminated. Returns the elements written, the NUL included
    /// (39), or 0 if `capacity` is too small, with nothing written.
    KVCORE_API int WINAPI StringFromGUID2(REFGUID id, LPOLESTR buffer, int capacity);

    /// The same into memory of its own at `text`, which the caller releases with CoTaskMemFree. S_OK or E_OUTOFMEMORY.
    KVCORE_API HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR * text);
    KVCORE_API HRESULT WINAPI StringFromIID(REFIID id, LPOLESTR * text);

    /// Memory that one side of a COM interface allocates and the other releases. Null if there is none; a `size` of 0
    /// gives a block without room, except that reallocating a block to 0 releases it and gives null. Any thread.
    KVCORE_API LPVOID WINAPI CoTaskMemAlloc(SIZE_T size);
    KVCORE_API LPVOID WINAPI CoTaskMemRealloc(LPVOID memory, SIZE_T size);
    KVCORE_API void WINAPI CoTaskMemFree(LPVOID memory);
}
