#include <string>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>

#include "Utf7.h"
#include "Utf8.h"

namespace
{

int Fail(DWORD code)
{
    SetLastError(code);
    return 0;
}

/// A call's last step: the length, or the failure that the conversion ran into.
int Finish(kv::platform::Conversion const & conversion, bool refuseMalformed)
{
    if (!conversion.complete)
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    if (conversion.malformed && refuseMalformed)
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    if (conversion.length > 0x7FFFFFFF)
        return Fail(ERROR_INVALID_PARAMETER);
    return static_cast<int>(conversion.length);
}

/// The pages that stand for another one. All of them are UTF-8, the one that this system's narrow texts are in.
UINT Resolve(UINT codePage)
{
    switch (codePage)
    {
    case CP_ACP:
    case CP_OEMCP:
    case CP_MACCP:
    case CP_THREAD_ACP:
        return CP_UTF8;
    default:
        return codePage;
    }
}

template <typename Unit>
std::size_t MeasureWithNul(Unit const * text)
{
    return std::char_traits<Unit>::length(text) + 1;
}

} // namespace

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH source, int sourceLength, LPWSTR target, int capacity)
{
    if (source == nullptr || sourceLength == 0 || capacity < 0 || (target == nullptr && capacity != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    std::size_t const length = sourceLength > 0 ? static_cast<std::size_t>(sourceLength) : MeasureWithNul(source);
    std::size_t const room = static_cast<std::size_t>(capacity);
    switch (Resolve(codePage))
    {
    case CP_UTF8:
        if ((flags & ~(MB_PRECOMPOSED | MB_COMPOSITE | MB_USEGLYPHCHARS | MB_ERR_INVALID_CHARS)) != 0)
            return Fail(ERROR_INVALID_FLAGS);
        return Finish(
            room == 0 ? kv::platform::CountUtf8AsUtf16(source, length)
                      : kv::platform::DecodeUtf8(source, length, target, room),
            (flags & MB_ERR_INVALID_CHARS) != 0);
    case CP_UTF7:
        if (flags != 0)
            return Fail(ERROR_INVALID_FLAGS);
        return Finish(kv::platform::DecodeUtf7(source, length, target, room), false);
    default:
        return Fail(ERROR_INVALID_PARAMETER);
    }
}

int WINAPI WideCharToMultiByte(
    UINT codePage, DWORD flags, LPCWCH source, int sourceLength, LPSTR target, int capacity, LPCCH defaultChar,
    LPBOOL usedDefaultChar)
{
    if (source == nullptr || sourceLength == 0 || capacity < 0 || (target == nullptr && capacity != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    std::size_t const length = sourceLength > 0 ? static_cast<std::size_t>(sourceLength) : MeasureWithNul(source);
    std::size_t const room = static_cast<std::size_t>(capacity);
    switch (Resolve(codePage))
    {
    case CP_UTF8:
    {
        auto const conversion = room == 0 ? kv::platform::CountUtf16AsUtf8(source, length)
                                          : kv::platform::EncodeUtf8(source, length, target, room);
        if (usedDefaultChar != nullptr)
            *usedDefaultChar = conversion.malformed;
        return Finish(conversion, (flags & WC_ERR_INVALID_CHARS) != 0);
    }
    case CP_UTF7:
        if (defaultChar != nullptr || usedDefaultChar != nullptr)
            return Fail(ERROR_INVALID_PARAMETER);
        if (flags != 0)
            return Fail(ERROR_INVALID_FLAGS);
        return Finish(kv::platform::EncodeUtf7(source, length, target, room), false);
    default:
        return Fail(ERROR_INVALID_PARAMETER);
    }
}

UINT WINAPI GetACP()
{
    return CP_UTF8;
}

UINT WINAPI GetOEMCP()
{
    return CP_UTF8;
}

BOOL WINAPI IsValidCodePage(UINT codePage)
{
    return codePage == CP_UTF8 || codePage == CP_UTF7;
}
