// Between paths and "file:" URLs.

#include <kvcore/files/File.h>

#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/files/PathRules.h>

#include <kvcore/platform/win32.h>

using kv::detail::PathView;

namespace
{

// Calls `form(buffer, &room)` with this room, and once more with what it asks for. True with the text.
template <typename Form>
bool InTwoTries(std::size_t firstRoom, String & text, Form form)
{
    kv::detail::ScratchBuffer<WCHAR, MAX_PATH> buffer(firstRoom + 1);
    DWORD room = static_cast<DWORD>(firstRoom);
    HRESULT result = form(buffer.Data(), &room);
    if (result == E_POINTER)
    {
        ++room;
        buffer.Resize(room);
        result = form(buffer.Data(), &room);
    }
    if (FAILED(result))
    {
        return false;
    }
    text = buffer.Data();
    return true;
}

// The value of a hexadecimal digit, or -1. Kept: case is folded by setting a bit, and the low byte alone is looked at,
// so that elements 0x10 to 0x19 count as digits as well.
int DigitValue(WCHAR c)
{
    unsigned int const folded = (static_cast<unsigned int>(c) | 0x20) & 0xFF;
    if (folded >= '0' && folded <= '9')
    {
        return static_cast<int>(folded - '0');
    }
    return folded >= 'a' && folded <= 'f' ? static_cast<int>(folded - 'a' + 10) : -1;
}

// Makes the escapes of bytes from 0x80 on single characters of that code; escapes of ASCII stay. Kept: an escape is
// known by its first character alone, and the character that shows it to be none is lost.
void UndoHighEscapes(String & url)
{
    std::size_t write = 0;
    std::size_t read = 0;
    while (read < url.size())
    {
        WCHAR const c = url[read++];
        if (c != '%' || read == url.size() || url[read] < 0x38)
        {
            url[write++] = c;
            continue;
        }
        int value = 0;
        for (int digits = 0; digits < 2 && read < url.size(); ++digits)
        {
            int const digit = DigitValue(url[read++]);
            if (digit < 0)
            {
                break;
            }
            value = value * 16 + digit;
        }
        url[write++] = static_cast<WCHAR>(value);
    }
    url.resize(write);
}

} // namespace

String File::PathToURL(String const & path)
{
    String url;
    if (!InTwoTries(
            path.size() * 2, url,
            [&](WCHAR * buffer, DWORD * room) { return ::UrlCreateFromPathW(path.c_str(), buffer, room, 0); }))
    {
        return String();
    }
    UndoHighEscapes(url);
    return url;
}

String File::URLToPath(String const & url)
{
    String whole;
    if (!InTwoTries(
            url.size(), whole,
            [&](WCHAR * buffer, DWORD * room)
            { return ::UrlCombineW(TEXT("file:"), url.c_str(), buffer, room, URL_DONT_SIMPLIFY); }))
    {
        whole = url;
    }
    String path;
    if (!InTwoTries(
            whole.size(), path,
            [&](WCHAR * buffer, DWORD * room) { return ::PathCreateFromUrlW(whole.c_str(), buffer, room, 0); }))
    {
        return String();
    }
    return path;
}
