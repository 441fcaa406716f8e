#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <kvcore/platform/include/oleauto.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

/// The size in bytes stands in the last 32 bits in front of the text, behind a gap that keeps the text aligned.
constexpr std::size_t prefix = 8;

char * BlockOf(BSTR text)
{
    return reinterpret_cast<char *>(text) - prefix;
}

} // namespace

BSTR WINAPI SysAllocString(WCHAR const * text)
{
    CheckText(text);
    if (text == nullptr)
    {
        return nullptr;
    }
    std::size_t const length = std::char_traits<WCHAR>::length(text);
    return length > UINT32_MAX ? nullptr : SysAllocStringLen(text, static_cast<UINT>(length));
}

BSTR WINAPI SysAllocStringLen(WCHAR const * text, UINT length)
{
    CheckArray(text, length);
    if (length > (INT32_MAX - 16) / sizeof(WCHAR))
    {
        return nullptr;
    }
    std::uint32_t const size = static_cast<std::uint32_t>(length * sizeof(WCHAR));
    char * const block = static_cast<char *>(std::malloc(prefix + size + sizeof(WCHAR)));
    if (block == nullptr)
    {
        return nullptr;
    }
    std::memcpy(block + prefix - sizeof size, &size, sizeof size);
    if (text != nullptr)
    {
        std::memcpy(block + prefix, text, size);
    }
    else
    {
        std::memset(block + prefix, 0, size);
    }
    std::memset(block + prefix + size, 0, sizeof(WCHAR));
    return reinterpret_cast<BSTR>(block + prefix);
}

void WINAPI SysFreeString(BSTR text)
{
    if (text != nullptr)
    {
        CheckArray(BlockOf(text), prefix); // or the fault would be the allocator's
        std::free(BlockOf(text));
    }
}

UINT WINAPI SysStringLen(BSTR text)
{
    if (text == nullptr)
    {
        return 0;
    }
    std::uint32_t size;
    std::memcpy(&size, BlockOf(text) + prefix - sizeof size, sizeof size);
    return static_cast<UINT>(size / sizeof(WCHAR));
}

void WINAPI VariantInit(VARIANT * value)
{
    value->vt = VT_EMPTY;
}

namespace
{

constexpr VARTYPE byReference = 0x4000; // the value is the owner's of what is pointed to
constexpr VARTYPE array = 0x2000;
constexpr VARTYPE typeMask = 0x0FFF;

/// Whether a value can be of this type at all.
bool IsTypeOfValues(VARTYPE type)
{
    constexpr VARTYPE gap = 15;
    constexpr VARTYPE beyondPlainTypes = 24;
    constexpr VARTYPE record = 36;
    constexpr VARTYPE classId = 72;
    VARTYPE const plain = type & typeMask;
    if ((type & ~(typeMask | byReference | array)) != 0 || plain == gap ||
        (plain >= beyondPlainTypes && plain != record && plain != classId))
    {
        return false;
    }
    return plain > VT_NULL || plain == type; // there are no arrays of nothing and no references to it
}

} // namespace

HRESULT WINAPI VariantClear(VARIANT * value)
{
    if (!IsTypeOfValues(value->vt))
    {
        return DISP_E_BADVARTYPE;
    }
    if (value->vt == VT_BSTR)
    {
        SysFreeString(value->bstrVal);
    }
    else if ((value->vt == VT_DISPATCH || value->vt == VT_UNKNOWN) && value->punkVal != nullptr)
    {
        value->punkVal->Release();
    }
    value->vt = VT_EMPTY;
    return S_OK;
}
