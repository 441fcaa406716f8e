// Pictures of dates and times, with any locale, flags, moment and capacity.
//
// What must hold for every picture: the answer to a size query is what the text then needs; one element less is refused
// with ERROR_INSUFFICIENT_BUFFER and leaves the front of the text; more makes no difference. Without flags, the
// invariant locale's text is what a formatter written from the rules gives, character by character.

#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

using Formatter = int(WINAPI *)(LCID, DWORD, SYSTEMTIME const *, LPCWSTR, LPWSTR, int);

LCID const locales[] = {LOCALE_INVARIANT, 0x0409, 0x0407, 0x0411, 0x0415, 0x041F, 0x0401, 0x040D, 0x041E, 0x9999};

struct Printed
{
    int result;
    DWORD error;
    WString text; // of a failure, what is in the buffer up to its NUL
};

/// One call, with memory that ends where the capacity does.
template <typename Call>
Printed Run(Call const & call, int capacity)
{
    fuzz::Exact<WCHAR> const target(static_cast<std::size_t>(capacity));
    std::fill(target.Data(), target.Data() + capacity, WCHAR('~'));
    SetLastError(0);
    int const result = call(capacity == 0 ? nullptr : target.Data(), capacity);
    DWORD const error = GetLastError();
    fuzz::Check(result >= 0 && (capacity == 0 || result <= capacity), "a length that is none");
    fuzz::Check((result == 0) == (error != 0), "a failure without a reason, or a reason without a failure");
    WString text(target.Data(), static_cast<std::size_t>(capacity));
    text.resize(std::min(text.find(WCHAR(0)), text.size()));
    return {result, error, text};
}

/// The text, or nothing but `result` 0 if the call fails.
template <typename Call>
Printed CheckSizes(Call const & call, std::size_t pictureLength, int more)
{
    Printed const query = Run(call, 0);
    if (query.result == 0)
    {
        fuzz::Check(query.error == ERROR_INVALID_PARAMETER || query.error == ERROR_INVALID_FLAGS, "an unknown failure");
        return query;
    }
    // A letter may stand for the longest name that there is.
    fuzz::Check(static_cast<std::size_t>(query.result) <= 64 * (pictureLength + 8), "a text out of proportion");
    Printed const exact = Run(call, query.result);
    fuzz::Check(exact.result == query.result, "the text needs another size than the query told");
    fuzz::Check(exact.text.size() + 1 == static_cast<std::size_t>(exact.result), "the length is not that of the text");
    Printed const ample = Run(call, query.result + more);
    fuzz::Check(ample.text == exact.text && ample.result == exact.result, "the capacity changes the text");
    if (query.result > 1)
    {
        Printed const tight = Run(call, query.result - 1);
        fuzz::Check(tight.result == 0 && tight.error == ERROR_INSUFFICIENT_BUFFER, "too small a buffer is not refused");
        fuzz::Check(tight.text == exact.text.substr(0, exact.text.size() - 1), "what fits is not there");
    }
    return exact;
}

void PutNumber(WString & text, unsigned value, std::size_t width)
{
    std::string const digits = std::to_string(value);
    text.append(width > digits.size() ? width - digits.size() : 0, WCHAR('0'));
    text.append(digits.begin(), digits.end());
}

void PutName(WString & text, char const * name, std::size_t length)
{
    std::string const letters(name);
    text.append(letters.begin(), letters.begin() + static_cast<std::ptrdiff_t>(std::min(length, letters.size())));
}

constexpr std::size_t wholeName = 100;

void PutDateField(WString & text, SYSTEMTIME const & when, WCHAR letter, std::size_t count)
{
    static char const * const months[] = {"January", "February", "March",     "April",   "May",      "June",
                                          "July",    "August",   "September", "October", "November", "December"};
    static char const * const days[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
    switch (letter)
    {
    case 'd':
        count <= 2 ? PutNumber(text, when.wDay, count)
                   : PutName(text, days[when.wDayOfWeek], count == 3 ? 3 : wholeName);
        break;
    case 'M':
        count <= 2 ? PutNumber(text, when.wMonth, count)
                   : PutName(text, months[when.wMonth - 1], count == 3 ? 3 : wholeName);
        break;
    case 'y':
        count <= 2 ? PutNumber(text, when.wYear % 100u, 2) : PutNumber(text, when.wYear, 4);
        break;
    default:
        for (; count > 0; --count)
        {
            PutName(text, "AD", wholeName);
        }
    }
}

void PutTimeField(WString & text, SYSTEMTIME const & when, WCHAR letter, std::size_t count)
{
    std::size_t const width = std::min<std::size_t>(count, 2);
    switch (letter)
    {
    case 'h':
        PutNumber(text, when.wHour % 12 == 0 ? 12 : when.wHour % 12u, width);
        break;
    case 'H':
        PutNumber(text, when.wHour, width);
        break;
    case 'm':
        PutNumber(text, when.wMinute, width);
        break;
    case 's':
        PutNumber(text, when.wSecond, width);
        break;
    default:
        PutName(text, when.wHour < 12 ? "AM" : "PM", width);
    }
}

/// A quote opens or closes a literal, and two inside of one are a quote.
template <typename Put>
WString Plain(WString const & picture, WString const & letters, Put put)
{
    WString text;
    bool quoted = false;
    for (std::size_t i = 0; i < picture.size();)
    {
        WCHAR const c = picture[i];
        std::size_t const end = std::min(picture.find_first_not_of(c, i), picture.size());
        if (c == '\'')
        {
            bool const isDouble = quoted && end - i >= 2;
            text.append(isDouble ? 1 : 0, c);
            quoted = isDouble || !quoted;
            i += isDouble ? 2 : 1;
        }
        else if (!quoted && letters.find(c) != WString::npos)
        {
            put(text, c, end - i);
            i = end;
        }
        else
        {
            text += c;
            ++i;
        }
    }
    return text;
}

/// The day of the week by counting, for a date that exists.
SYSTEMTIME WithDayOfWeek(SYSTEMTIME when)
{
    static int const shift[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
    int const year = when.wYear - (when.wMonth < 3 ? 1 : 0);
    when.wDayOfWeek =
        static_cast<WORD>((year + year / 4 - year / 100 + year / 400 + shift[when.wMonth - 1] + when.wDay) % 7);
    return when;
}

SYSTEMTIME TakeMoment(fuzz::Input & input, bool real)
{
    SYSTEMTIME when;
    for (WORD * const field :
         {&when.wYear, &when.wMonth, &when.wDayOfWeek, &when.wDay, &when.wHour, &when.wMinute, &when.wSecond,
          &when.wMilliseconds})
    {
        *field = input.Word();
    }
    if (real)
    {
        when.wYear = static_cast<WORD>(1601 + when.wYear % 29227);
        when.wMonth = static_cast<WORD>(1 + when.wMonth % 12);
        when.wDay = static_cast<WORD>(1 + when.wDay % 28);
        when.wHour %= 24;
        when.wMinute %= 60;
        when.wSecond %= 60;
        when.wMilliseconds %= 1000;
    }
    return when;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const choice = input.Byte();
    LCID const locale = locales[input.Byte() % std::size(locales)];
    DWORD const given = input.DWord();
    DWORD const flags = choice & 1 ? 0 : choice & 2 ? given & 0xFF : given;
    bool const isReal = (choice & 4) != 0;
    bool const isDate = (choice & 8) != 0;
    bool const hasPicture = (choice & 16) != 0;
    SYSTEMTIME const when = TakeMoment(input, isReal);
    int const more = input.Byte();
    WString rest = input.RestWide();
    WString const picture = rest.substr(0, rest.find(WCHAR(0)));
    fuzz::Exact<WCHAR> const exact(picture.c_str(), picture.size() + 1);

    Formatter const format = isDate ? GetDateFormatW : GetTimeFormatW;
    auto const call = [&](LPWSTR buffer, int capacity)
    { return format(locale, flags, &when, hasPicture ? exact.Data() : nullptr, buffer, capacity); };
    Printed const printed = CheckSizes(call, picture.size(), more);

    if (flags == 0 && isReal && hasPicture && locale == LOCALE_INVARIANT)
    {
        SYSTEMTIME const date = WithDayOfWeek(when);
        WString const expected = isDate
            ? Plain(
                  picture, TEXT("dMyg"),
                  [&](WString & text, WCHAR c, std::size_t count) { PutDateField(text, date, c, count); })
            : Plain(
                  picture, TEXT("hHmst"),
                  [&](WString & text, WCHAR c, std::size_t count) { PutTimeField(text, when, c, count); });
        fuzz::Check(printed.result != 0, "a real moment is refused");
        fuzz::Check(printed.text == expected, "the text differs from the rules");
    }
    return 0;
}
