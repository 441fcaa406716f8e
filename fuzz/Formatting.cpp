// Templates from outside: printf-style and message-style, with any text in them.
//
// A template that takes arguments must be given them, so those are kept to conversions for which an argument that fits
// can be made: every argument is the address of one text that is terminated as narrow and as wide text, which prints as
// a text, as a number and as a character alike. Beyond the sanitizers' view, a small buffer must hold the beginning of
// what a large one holds.

#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

/// "x", terminated for readers of either width.
alignas(8) char const text[8] = {'x'};

std::size_t const argumentCount = 100;

bool IsDigit(WCHAR c)
{
    return c >= '0' && c <= '9';
}

/// Whether every argument of `format` may be the address of `text`: no width from the arguments and no width beyond
/// three digits, which would print blanks by the gigabyte as asked, and nothing that writes through its argument or
/// takes it for a counted string.
bool IsTame(WString const & format)
{
    std::size_t conversions = 0;
    std::size_t digits = 0;
    bool inside = false;
    for (WCHAR c : format)
    {
        digits = IsDigit(c) ? digits + 1 : 0;
        conversions += c == '%';
        inside = inside || c == '%';
        if (digits > 3 || conversions > 12)
        {
            return false;
        }
        if (inside && (c == '*' || c == 'n' || c == 'Z'))
        {
            return false;
        }
    }
    return true;
}

int Print(WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    int const result = _vsnwprintf(buffer, capacity, format, arguments);
    va_end(arguments);
    return result;
}

/// Eight doubles fill the registers for them, so that every further argument, in whatever register or on the stack, is
/// the text's address.
template <class Function, class... Front>
auto WithArguments(Function function, Front... front)
{
    char const * const t = text;
    double const d = 1.5;
    return function(
        front..., d, d, d, d, d, d, d, d, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t,
        t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t, t);
}

void CheckPrintf(WString const & format, std::size_t capacity)
{
    fuzz::Exact<WCHAR> const exact(format.c_str(), format.size() + 1);
    std::size_t const large = 0x4000;
    std::vector<WCHAR> whole(large + 1, 0xFFFF);
    int const length = WithArguments(Print, whole.data(), large, static_cast<WCHAR const *>(exact.Data()));
    fuzz::Check(length >= -1 && length <= static_cast<int>(large), "a length beyond the capacity");

    fuzz::Exact<WCHAR> const small(capacity);
    int const printed = WithArguments(Print, small.Data(), capacity, static_cast<WCHAR const *>(exact.Data()));
    if (length < 0)
    {
        fuzz::Check(printed == -1, "what a large buffer cannot hold, a small one can");
        return;
    }
    std::size_t const units = static_cast<std::size_t>(length);
    fuzz::Check(printed == (units <= capacity ? length : -1), "the capacity is not what decides");
    fuzz::Check(
        std::equal(small.Data(), small.Data() + std::min(units, capacity), whole.data()),
        "the small buffer holds other text");
    String const result = WithArguments(
        [](WCHAR const * f, auto... arguments) { return String::FromFormat(f, arguments...); },
        static_cast<WCHAR const *>(exact.Data()));
    fuzz::Check(
        result == WString(whole.data(), std::min(units, WString(whole.data(), units).find(WCHAR(0)))),
        "FromFormat differs from what it stands on");
}

/// Runs FormatMessageW into memory of `capacity` elements.
DWORD Message(DWORD flags, WCHAR const * format, WCHAR * target, DWORD capacity, DWORD_PTR * arguments)
{
    SetLastError(0);
    DWORD const result = FormatMessageW(
        flags | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, format, 0, 0, target, capacity,
        reinterpret_cast<std::va_list *>(arguments));
    return result;
}

void CheckMessage(WString const & format, DWORD flags, DWORD capacity)
{
    fuzz::Exact<WCHAR> const exact(format.c_str(), format.size() + 1);
    std::vector<DWORD_PTR> arguments(argumentCount, reinterpret_cast<DWORD_PTR>(text));
    DWORD_PTR * const given = flags & FORMAT_MESSAGE_IGNORE_INSERTS ? nullptr : arguments.data();

    WCHAR * allocated = nullptr;
    DWORD const length =
        Message(flags | FORMAT_MESSAGE_ALLOCATE_BUFFER, exact.Data(), reinterpret_cast<WCHAR *>(&allocated), 0, given);
    fuzz::Check(length == 0 || (allocated != nullptr && allocated[length] == 0), "the message is not terminated");

    fuzz::Exact<WCHAR> const target(capacity);
    DWORD const printed = Message(flags, exact.Data(), target.Data(), capacity, given);
    fuzz::Check(printed == 0 || printed < capacity, "the message does not fit with its NUL");
    if (length != 0 && length < capacity)
    {
        fuzz::Check(
            printed == length && std::equal(allocated, allocated + length + 1, target.Data()),
            "the buffer's owner makes a difference to the text");
    }
    LocalFree(allocated);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const choice = input.Byte();
    std::size_t const capacity = input.Word() % 600;
    std::string const rest = input.Rest();
    WString format(rest.begin(), rest.end());
    for (WCHAR & c : format)
    {
        // Above ASCII: letters, and now and then half a surrogate pair.
        c = static_cast<WCHAR>(c & 0x80 ? (choice & 0x80 ? 0xD780 : 0x80) + (c & 0x7F) : c & 0x7F);
    }
    format = format.c_str();
    DWORD const width = choice & 8 ? choice >> 3 : 0;
    CheckMessage(format, FORMAT_MESSAGE_IGNORE_INSERTS | width, static_cast<DWORD>(capacity));
    if (IsTame(format))
    {
        CheckMessage(format, width, static_cast<DWORD>(capacity));
        CheckPrintf(format, capacity);
    }
    return 0;
}
