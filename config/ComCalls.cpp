#include <kvcore/config/ComCalls.h>

#include <string>

namespace kv::detail
{

namespace
{

String DescriptionFrom(IUnknown * object)
{
    ComPointer<ISupportErrorInfo> support;
    ComPointer<IErrorInfo> report;
    BStr description;
    if (object == nullptr || FAILED(object->QueryInterface(IID_ISupportErrorInfo, support.ReceiveVoid())) || !support ||
        GetErrorInfo(0, report.Receive()) != S_OK || !report || FAILED(report->GetDescription(description.Receive())))
    {
        return String();
    }
    return description.Text();
}

// Without the line end that the system has behind it: the report ends the line itself.
String SystemText(HRESULT result)
{
    WCHAR * text = nullptr;
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(result), 1024, reinterpret_cast<WCHAR *>(&text), 0, nullptr);
    if (length == 0)
    {
        return String();
    }
    String message(text, length);
    LocalFree(text);
    while (!message.empty() && (message.back() == TEXT('\n') || message.back() == TEXT('\r')))
    {
        message.pop_back();
    }
    return message;
}

String MessageFor(HRESULT result)
{
    if (String const text = SystemText(result); !text.empty())
    {
        return text;
    }
    unsigned const bits = static_cast<unsigned>(result);
    constexpr unsigned first = 0x80040200;
    if (bits > first && bits <= 0x8004FFFF)
    {
        return String::FromFormat(TEXT("IDispatch error #%d"), static_cast<int>(bits - first));
    }
    return String::FromFormat(TEXT("Unknown error 0x%0lX"), bits);
}

} // namespace

ComFailure::ComFailure(HRESULT failure, IUnknown * object) : result(failure), description(DescriptionFrom(object)) {}

String ComFailure::Report() const
{
    String report = TEXT("Unexpected COM error.\n");
    if (!description.empty())
    {
        report += String::FromFormat(TEXT("Description: %s\n"), description.c_str());
    }
    report += String::FromFormat(TEXT("Message: %s\n"), MessageFor(result).c_str());
    return report;
}

BStr::BStr(WCHAR const * source) : text(SysAllocString(source))
{
    if (source != nullptr && text == nullptr)
    {
        throw ComFailure(E_OUTOFMEMORY);
    }
}

WString Variant::Text() const
{
    if (value.vt != VT_BSTR)
    {
        throw ComFailure(DISP_E_TYPEMISMATCH);
    }
    return value.bstrVal == nullptr ? WString() : WString(value.bstrVal, SysStringLen(value.bstrVal));
}

} // namespace kv::detail
