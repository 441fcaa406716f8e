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
#define SUCCEEDED(result) ((HRESULT)(result) >= 0)
#define FAILED(result) ((HRESULT)(result) < 0)

extern "C"
{
    /// Parses "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}". A text of any other form gives a negative result; what `id`
    /// holds then is as on Windows. A null text gives the all-zero identifier and S_OK.
    KVCORE_API HRESULT WINAPI CLSIDFromString(LPCOLESTR text, CLSID * id);

    /// Prints `id` with braces and upper-case digits, NUL-terminated. Returns the elements written, the NUL included
    /// (39), or 0 if `capacity` is too small.
    KVCORE_API int WINAPI StringFromGUID2(REFGUID id, LPOLESTR buffer, int capacity);
}
