#include <algorithm>
#include <limits>

#include <kvcore/core/LocalText.h>
#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/NumericLocale.h>
#include <kvcore/platform/win32.h>

namespace
{

/// An argument list that may be read again: each reader gets its own copy.
class ArgumentsCopy
{
public:
    explicit ArgumentsCopy(std::va_list arguments)
    {
        va_copy(copy, arguments);
    }
    ~ArgumentsCopy()
    {
        va_end(copy);
    }
    ArgumentsCopy(ArgumentsCopy const &) = delete;
    ArgumentsCopy & operator=(ArgumentsCopy const &) = delete;

    std::va_list copy;
};

int Print(WCHAR * buffer, std::size_t limit, WCHAR const * format, std::va_list arguments)
{
    ArgumentsCopy list(arguments);
    return kv::platform::PrintInvariant(buffer, limit, format, list.copy);
}

// A text that needs more than this many elements is believed only to a run-time library that can name its length.
constexpr std::size_t blindLimit = std::size_t(1) << 24;

/// The next size to try after `elements` were too few; 0 if the run-time library fails for another reason than room,
/// which it tells by the same -1.
std::size_t LargerSize(std::size_t elements, WCHAR const * format, std::va_list arguments)
{
    int const length = Print(nullptr, 0, format, arguments);
    if (length >= 0)
    {
        return std::max(elements * 2, std::size_t(length) + 2);
    }
    return elements < blindLimit ? elements * 2 : 0;
}

} // namespace

String String::FromFormatV(WCHAR const * format, std::va_list arguments)
{
    kv::detail::ScratchBuffer<WCHAR, 2048> scratch;
    for (std::size_t elements = scratch.Capacity(); elements != 0;)
    {
        scratch.Resize(elements);
        std::size_t const limit = elements - 1;
        int const printed = Print(scratch.Data(), limit, format, arguments);
        if (printed >= 0 && std::size_t(printed) <= limit)
        {
            scratch.Data()[printed] = 0; // none was written if the text just fits
            return scratch.Data();
        }
        elements = LargerSize(elements, format, arguments);
    }
    return String();
}

String String::FromFormatV(WString const & format, std::va_list arguments)
{
    return FromFormatV(format.c_str(), arguments);
}

String String::FromFormat(WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    String text = FromFormatV(format, arguments);
    va_end(arguments);
    return text;
}

String & String::Format(WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    String text = FromFormatV(format, arguments);
    va_end(arguments);
    swap(text);
    return *this;
}

String String::FromFormatMessageV(WCHAR const * format, std::va_list arguments)
{
    ArgumentsCopy list(arguments);
    kv::detail::LocalText text;
    DWORD const length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_STRING, format, 0, 0, text.Target(), 0, &list.copy);
    return length != 0 ? String(text.Get(), length) : String();
}

String String::FromFormatMessageV(WString const & format, std::va_list arguments)
{
    return FromFormatMessageV(format.c_str(), arguments);
}

String String::FromFormatMessage(WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    String text = FromFormatMessageV(format, arguments);
    va_end(arguments);
    return text;
}
