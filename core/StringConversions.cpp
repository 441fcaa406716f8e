#include <kvcore/core/LocalText.h>
#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

bool String::ParseGUID(GUID & value) const
{
    if (CLSIDFromString(const_cast<WCHAR *>(c_str()), &value) < 0) // not every system's header has the const
    {
        value = GUID{};
        return false;
    }
    return true;
}

String String::FromGUID(GUID const & value)
{
    WCHAR text[50];
    int const written = StringFromGUID2(value, text, 50);
    return written > 0 ? String(text, unsigned(written) - 1) : String();
}

namespace
{

/// What `print` prints: asked for the length first (its NUL included), then for the text.
template <typename Print>
String PrintedText(Print print)
{
    int const needed = print(nullptr, 0);
    if (needed <= 0)
    {
        return String();
    }
    kv::detail::ScratchBuffer<WCHAR, 128> text{std::size_t(needed)};
    int const written = print(text.Data(), needed);
    return written > 0 ? String(text.Data(), unsigned(written) - 1) : String();
}

} // namespace

String String::FromDate(SYSTEMTIME const & when, bool longDate)
{
    DWORD const flags = LOCALE_USE_CP_ACP | (longDate ? DATE_LONGDATE : DATE_SHORTDATE);
    return PrintedText([&](WCHAR * text, int capacity)
                       { return GetDateFormatW(LOCALE_USER_DEFAULT, flags, &when, nullptr, text, capacity); });
}

String String::FromTime(SYSTEMTIME const & when, bool withSeconds)
{
    DWORD const flags = LOCALE_USE_CP_ACP | (withSeconds ? 0 : TIME_NOSECONDS);
    return PrintedText([&](WCHAR * text, int capacity)
                       { return GetTimeFormatW(LOCALE_USER_DEFAULT, flags, &when, nullptr, text, capacity); });
}

String String::FromError(DWORD code)
{
    kv::detail::LocalText text;
    DWORD const length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code,
        LOCALE_USER_DEFAULT, text.Target(), 0, nullptr);
    if (length == 0)
    {
        return String();
    }
    WString const message(text.Get(), length);
    return message.substr(0, message.find_first_of(TEXT("\r\n")));
}
