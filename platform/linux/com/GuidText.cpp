#include <algorithm>
#include <cstdlib>
#include <string>

#include <kvcore/platform/include/objbase.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

constexpr int guidTextLength = 38;

/// The value of a hexadecimal digit, or -1.
int HexDigit(WCHAR c)
{
    if (c >= u'0' && c <= u'9')
    {
        return c - u'0';
    }
    WCHAR const lower = static_cast<WCHAR>(c | 0x20);
    return lower >= u'a' && lower <= u'f' ? lower - u'a' + 10 : -1;
}

/// Reads `digits` digits into a field. The field holds what was read even if a digit is missing, and false comes back.
template <typename Field>
bool ParseField(WCHAR const *& text, int digits, Field & field)
{
    field = 0;
    for (int i = 0; i < digits; ++i, ++text)
    {
        int const digit = HexDigit(*text);
        if (digit < 0)
        {
            return false;
        }
        field = static_cast<Field>(static_cast<std::uint32_t>(field) << 4 | static_cast<std::uint32_t>(digit));
    }
    return true;
}

/// The same for one byte, which stays as it was if a digit is missing.
bool ParseByte(WCHAR const *& text, std::uint8_t & byte)
{
    std::uint8_t value = 0;
    if (!ParseField(text, 2, value))
    {
        return false;
    }
    byte = value;
    return true;
}

bool ParseDash(WCHAR const *& text)
{
    return *text++ == u'-';
}

/// Reads the form with braces, up to and including the NUL. What stands before the first wrong element is stored even
/// in vain: callers that look at a failed identifier find what Windows leaves there.
bool ParseBraced(WCHAR const * text, GUID & id)
{
    if (*text++ != u'{' || !ParseField(text, 8, id.Data1) || !ParseDash(text) || !ParseField(text, 4, id.Data2) ||
        !ParseDash(text) || !ParseField(text, 4, id.Data3) || !ParseDash(text))
    {
        return false;
    }
    for (int i = 0; i < 8; ++i)
    {
        if ((i == 2 && !ParseDash(text)) || !ParseByte(text, id.Data4[i]))
        {
            return false;
        }
    }
    return text[0] == u'}' && text[1] == 0;
}

WCHAR * PrintHex(std::uint32_t value, int digits, WCHAR * out)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
    {
        *out++ = u"0123456789ABCDEF"[value >> shift & 15];
    }
    return out;
}

} // namespace

HRESULT WINAPI CLSIDFromString(LPCOLESTR text, CLSID * id)
{
    CheckText(text);
    CheckOutputs(id);
    if (id == nullptr)
    {
        return E_INVALIDARG;
    }
    if (text == nullptr || *text != u'{')
    {
        *id = GUID{};
        // What does not begin with a brace is the name of a program, and none is registered.
        return text == nullptr ? S_OK : CO_E_CLASSSTRING;
    }
    return ParseBraced(text, *id) ? S_OK : CO_E_CLASSSTRING;
}

HRESULT WINAPI IIDFromString(LPCOLESTR text, IID * id)
{
    CheckText(text);
    CheckOutputs(id);
    if (id == nullptr)
    {
        return E_INVALIDARG;
    }
    if (text == nullptr)
    {
        *id = GUID{};
        return S_OK;
    }
    if (std::char_traits<WCHAR>::length(text) != guidTextLength)
    {
        return E_INVALIDARG;
    }
    return ParseBraced(text, *id) ? S_OK : CO_E_IIDSTRING;
}

int WINAPI StringFromGUID2(REFGUID id, LPOLESTR buffer, int capacity)
{
    CheckInputs(&id);
    CheckBuffer(buffer, capacity > 0 ? 1 : 0);
    if (buffer == nullptr || capacity <= guidTextLength)
    {
        return 0;
    }
    WCHAR * out = buffer;
    *out++ = u'{';
    out = PrintHex(id.Data1, 8, out);
    *out++ = u'-';
    out = PrintHex(id.Data2, 4, out);
    *out++ = u'-';
    out = PrintHex(id.Data3, 4, out);
    for (int i = 0; i < 8; ++i)
    {
        if (i == 0 || i == 2)
        {
            *out++ = u'-';
        }
        out = PrintHex(id.Data4[i], 2, out);
    }
    *out++ = u'}';
    *out = 0;
    return guidTextLength + 1;
}

LPVOID WINAPI CoTaskMemAlloc(SIZE_T size)
{
    return std::malloc(std::max<SIZE_T>(size, 1));
}

LPVOID WINAPI CoTaskMemRealloc(LPVOID memory, SIZE_T size)
{
    if (memory != nullptr && size == 0)
    {
        std::free(memory);
        return nullptr;
    }
    return std::realloc(memory, std::max<SIZE_T>(size, 1));
}

void WINAPI CoTaskMemFree(LPVOID memory)
{
    std::free(memory);
}

HRESULT WINAPI StringFromCLSID(REFCLSID id, LPOLESTR * text)
{
    CheckInputs(&id);
    CheckOutputs(text);
    *text = static_cast<LPOLESTR>(CoTaskMemAlloc((guidTextLength + 1) * sizeof(WCHAR)));
    if (*text == nullptr)
    {
        return E_OUTOFMEMORY;
    }
    StringFromGUID2(id, *text, guidTextLength + 1);
    return S_OK;
}

HRESULT WINAPI StringFromIID(REFIID id, LPOLESTR * text)
{
    CheckInputs(&id);
    CheckOutputs(text);
    return StringFromCLSID(id, text);
}
