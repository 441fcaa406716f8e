#include "Objects.h"

#include <climits>
#include <cstring>

#include <kvcore/platform/linux/text/Utf8.h>

namespace kv::platform
{

namespace
{

class Report final : public IErrorInfo
{
public:
    explicit Report(std::string text) : description(std::move(text)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        *object = iid == IID_IUnknown || iid == IID_IErrorInfo ? this : nullptr;
        if (*object == nullptr)
        {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG const left = --references;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE GetGUID(GUID * interfaceId) override
    {
        *interfaceId = GUID{};
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR * source) override
    {
        return Guarded([&] { return GiveText("msxml4.dll", source); });
    }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR * text) override
    {
        return Guarded([&] { return GiveText(description.c_str(), text); });
    }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR * file) override
    {
        *file = nullptr;
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD * context) override
    {
        *context = 0;
        return S_OK;
    }

private:
    ~Report() = default;

    std::atomic<ULONG> references{1};
    std::string description;
};

} // namespace

BSTR NewText(char const * utf8, std::size_t length)
{
    if (utf8 == nullptr)
    {
        return nullptr;
    }
    std::size_t const units = CountUtf8AsUtf16(utf8, length).length;
    BSTR const text = units > INT_MAX ? nullptr : SysAllocStringLen(nullptr, static_cast<UINT>(units));
    if (text == nullptr)
    {
        throw std::bad_alloc();
    }
    DecodeUtf8(utf8, length, text, units);
    return text;
}

BSTR NewText(std::string const & utf8)
{
    return NewText(utf8.data(), utf8.size());
}

HRESULT GiveText(char const * utf8, BSTR * target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    if (utf8 == nullptr)
    {
        return S_FALSE;
    }
    *target = NewText(utf8, std::strlen(utf8));
    return S_OK;
}

HRESULT GiveText(std::string const & utf8, BSTR * target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    *target = NewText(utf8);
    return S_OK;
}

std::string Utf8Of(WCHAR const * text, std::size_t length)
{
    std::string utf8(CountUtf16AsUtf8(text, length).length, '\0');
    EncodeUtf8(text, length, utf8.data(), utf8.size());
    return utf8;
}

std::string Utf8Of(BSTR text)
{
    return text == nullptr ? std::string() : Utf8Of(text, SysStringLen(text));
}

HRESULT FailWithReport(HRESULT result, std::string const & description) noexcept
{
    Guarded(
        [&]
        {
            Report * const report = new Report(description);
            SetErrorInfo(0, report);
            report->Release();
            return S_OK;
        });
    return result;
}

} // namespace kv::platform
