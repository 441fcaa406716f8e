#include <atomic>
#include <cstdio>
#include <string>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/include/winuser.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/text/Utf8.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

namespace
{

std::atomic<MessageBoxHandler> currentHandler{nullptr};

/// The buttons of each style, from the first on.
constexpr int buttons[][3] = {
    {IDOK, 0, 0},     {IDOK, IDCANCEL, 0},    {IDABORT, IDRETRY, IDIGNORE},       {IDYES, IDNO, IDCANCEL},
    {IDYES, IDNO, 0}, {IDRETRY, IDCANCEL, 0}, {IDCANCEL, IDTRYAGAIN, IDCONTINUE},
};

std::string Utf8(WCHAR const * text)
{
    std::size_t const length = std::char_traits<WCHAR>::length(text);
    std::string result(CountUtf16AsUtf8(text, length).length, 0);
    EncodeUtf8(text, length, result.data(), result.size());
    return result;
}

int ShowOnErrorStream(MSGBOXPARAMSW const & parameters)
{
    std::string const line = Utf8(parameters.lpszCaption) + ": " + Utf8(parameters.lpszText) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    auto const & shown = buttons[parameters.dwStyle & MB_TYPEMASK];
    unsigned const chosen = (parameters.dwStyle & MB_DEFMASK) >> 8;
    return chosen < std::size(shown) && shown[chosen] != 0 ? shown[chosen] : shown[0];
}

} // namespace

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) noexcept
{
    return currentHandler.exchange(handler);
}

} // namespace kv::platform

using namespace kv::platform;

BOOL WINAPI IsWindow(HWND)
{
    return FALSE;
}

int WINAPI MessageBoxIndirectW(MSGBOXPARAMSW const * parameters)
{
    if ((parameters->dwStyle & MB_TYPEMASK) >= std::size(buttons))
    {
        SetLastError(ERROR_INVALID_MSGBOX_STYLE);
        return 0;
    }
    MSGBOXPARAMSW shown = *parameters;
    shown.lpszText = shown.lpszText != nullptr ? shown.lpszText : u"";
    shown.lpszCaption = shown.lpszCaption != nullptr ? shown.lpszCaption : u"Error";
    MessageBoxHandler const handler = currentHandler.load();
    return handler != nullptr ? handler(shown) : ShowOnErrorStream(shown);
}
