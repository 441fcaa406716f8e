#include <array>
#include <chrono>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include <unicode/udat.h>
#include <unicode/udatpg.h>
#include <unicode/uloc.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "Locales.h"

using namespace kv::platform;

namespace
{

using Text = std::u16string;
using View = std::u16string_view;

/// What a locale's users expect: its names, and its pictures in the language of the Win32 format strings.
struct LocaleFormats
{
    std::array<Text, 12> months;      ///< As they stand beside the number of a day.
    std::array<Text, 12> aloneMonths; ///< As they stand without one.
    std::array<Text, 12> shortMonths;
    std::array<Text, 7> days;
    std::array<Text, 7> shortDays;
    std::array<Text, 2> halves; ///< Of the day.
    Text era;
    Text shortDate;
    Text longDate;
    Text yearMonth;
    Text monthDay;
    Text time;
};

/// The length of the run of one letter that `text` starts with.
std::size_t RunLength(View text)
{
    std::size_t const end = text.find_first_not_of(text.front());
    return end == View::npos ? text.size() : end;
}

/// One field of an ICU pattern as a Win32 field. Fields that Win32 does not have vanish.
Text FieldOf(char16_t letter, std::size_t count)
{
    auto const repeat = [count](char16_t c, std::size_t most) { return Text(std::min(count, most), c); };
    switch (letter)
    {
    case u'y':
    case u'u':
        return count == 2 ? u"yy" : u"yyyy";
    case u'M':
    case u'L':
        return repeat(u'M', 4);
    case u'd':
        return repeat(u'd', 2);
    case u'E':
    case u'c':
        return count >= 4 ? u"dddd" : u"ddd";
    case u'G':
        return u"g";
    case u'h':
    case u'K':
        return repeat(u'h', 2);
    case u'H':
    case u'k':
        return repeat(u'H', 2);
    case u'm':
        return repeat(u'm', 2);
    case u's':
        return repeat(u's', 2);
    case u'a':
    case u'b':
    case u'B':
        return u"tt";
    default:
        return {};
    }
}

bool IsLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

/// An ICU pattern as a Win32 picture. Both quote in the same way.
Text PictureOf(View pattern)
{
    Text picture;
    while (!pattern.empty())
    {
        std::size_t taken = 1;
        if (pattern.front() == u'\'')
        {
            std::size_t const end = pattern.find(u'\'', 1);
            taken = end == View::npos ? pattern.size() : end + 1;
            picture += pattern.substr(0, taken);
        }
        else if (IsLetter(pattern.front()))
        {
            taken = RunLength(pattern);
            picture += FieldOf(pattern.front(), taken);
        }
        else
            picture += pattern.front();
        pattern.remove_prefix(taken);
    }
    return picture;
}

/// Calls an ICU function that fills a buffer and returns the length, and makes a text of what it fills in.
template <typename Fill>
Text Collect(Fill fill)
{
    std::array<char16_t, 256> buffer;
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length = fill(buffer.data(), static_cast<int32_t>(buffer.size()), &error);
    if (U_FAILURE(error) || length < 0 || static_cast<std::size_t>(length) > buffer.size())
        return {};
    return Text(buffer.data(), static_cast<std::size_t>(length));
}

using Format = std::unique_ptr<UDateFormat, decltype(&udat_close)>;

Format OpenFormat(std::string const & locale, UDateFormatStyle time, UDateFormatStyle date)
{
    UErrorCode error = U_ZERO_ERROR;
    return Format(udat_open(time, date, locale.c_str(), u"UTC", 3, nullptr, 0, &error), udat_close);
}

Text PatternOf(Format const & format)
{
    if (format == nullptr)
        return {};
    return Collect([&](char16_t * out, int32_t room, UErrorCode * e)
                   { return udat_toPattern(format.get(), false, out, room, e); });
}

template <std::size_t count>
void ReadSymbols(Format const & format, UDateFormatSymbolType type, int32_t first, std::array<Text, count> & names)
{
    for (std::size_t i = 0; i < count; i++)
    {
        names[i] =
            Collect([&](char16_t * out, int32_t room, UErrorCode * e)
                    { return udat_getSymbols(format.get(), type, first + static_cast<int32_t>(i), out, room, e); });
    }
}

/// The pattern that ICU makes of a list of fields.
Text BestPattern(std::string const & locale, View fields)
{
    UErrorCode error = U_ZERO_ERROR;
    std::unique_ptr<UDateTimePatternGenerator, decltype(&udatpg_close)> const generator(
        udatpg_open(locale.c_str(), &error), udatpg_close);
    if (U_FAILURE(error))
        return {};
    return Collect(
        [&](char16_t * out, int32_t room, UErrorCode * e) {
            return udatpg_getBestPattern(
                generator.get(), fields.data(), static_cast<int32_t>(fields.size()), out, room, e);
        });
}

/// ICU's newer data keep the half of the day on the clock's line by a narrow blank that Windows does not write.
Text WithPlainBlanks(Text text)
{
    for (char16_t & c : text)
    {
        if (c == u'\u202F' || c == u'\u00A0')
            c = u' ';
    }
    return text;
}

/// Null if ICU has no data at all.
std::unique_ptr<LocaleFormats> LoadFormats(std::string const & name)
{
    // Win32's pictures count years of the Gregorian calendar, whatever the locale's own is.
    bool const invariant = name.empty();
    std::string const locale = (invariant ? "en_US" : name.substr(0, name.find('@'))) + "@calendar=gregorian";
    Format const dates = OpenFormat(locale, UDAT_NONE, UDAT_FULL);
    Format const times = OpenFormat(locale, UDAT_MEDIUM, UDAT_NONE);
    if (dates == nullptr || times == nullptr)
        return nullptr;
    auto formats = std::make_unique<LocaleFormats>();
    ReadSymbols(dates, UDAT_MONTHS, 0, formats->months);
    ReadSymbols(dates, UDAT_STANDALONE_MONTHS, 0, formats->aloneMonths);
    ReadSymbols(dates, UDAT_SHORT_MONTHS, 0, formats->shortMonths);
    ReadSymbols(dates, UDAT_WEEKDAYS, UCAL_SUNDAY, formats->days);
    ReadSymbols(dates, UDAT_SHORT_WEEKDAYS, UCAL_SUNDAY, formats->shortDays);
    ReadSymbols(dates, UDAT_AM_PMS, 0, formats->halves);
    std::array<Text, 2> eras;
    ReadSymbols(dates, UDAT_ERAS, 0, eras);
    formats->era = eras[1];
    if (invariant)
    {
        formats->shortDate = u"MM/dd/yyyy";
        formats->longDate = u"dddd, dd MMMM yyyy";
        formats->yearMonth = u"yyyy MMMM";
        formats->monthDay = u"MMMM dd";
        formats->time = u"HH:mm:ss";
        return formats;
    }
    formats->shortDate = PictureOf(BestPattern(locale, u"yMd"));
    formats->longDate = PictureOf(PatternOf(dates));
    formats->yearMonth = PictureOf(BestPattern(locale, u"yMMMM"));
    formats->monthDay = PictureOf(BestPattern(locale, u"MMMMd"));
    formats->time = WithPlainBlanks(PictureOf(PatternOf(times)));
    return formats;
}

/// The formats of a locale, read at first use and kept to the end of the process. Null if there is no such locale.
LocaleFormats const * FindFormats(LCID locale)
{
    std::optional<std::string> const name = kv::platform::IcuLocale(locale, kv::platform::LocaleCategory::Time);
    if (!name)
        return nullptr;
    static std::mutex mutex;
    static auto & loaded = *new std::unordered_map<std::string, std::unique_ptr<LocaleFormats>>;
    std::lock_guard const lock(mutex);
    auto const found = loaded.find(*name);
    if (found != loaded.end())
        return found->second.get();
    return loaded.emplace(*name, LoadFormats(*name)).first->second.get();
}

/// Decimal digits, with zeros in front up to `width`.
Text Number(unsigned value, std::size_t width)
{
    Text digits;
    for (; value != 0 || digits.size() < width || digits.empty(); value /= 10)
        digits.insert(digits.begin(), static_cast<char16_t>(u'0' + value % 10));
    return digits;
}

/// One piece of a picture: a field, or a character that stands for itself.
struct Piece
{
    char16_t field; ///< Its letter, or NUL for a literal.
    std::size_t count;
    View literal;
    bool quoted;
};

/// Takes a picture apart. A quote opens a literal up to the next one, and two of them inside it are one that stands for
/// itself; what is never closed runs to the end.
class PictureReader
{
public:
    PictureReader(View text, View letters) : rest(text), fields(letters) {}

    bool Next(Piece & piece)
    {
        if (!quoted && !rest.empty() && rest.front() == u'\'')
        {
            quoted = true;
            rest.remove_prefix(1);
        }
        while (quoted && !rest.empty() && rest.front() == u'\'')
        {
            if (rest.size() > 1 && rest[1] == u'\'')
            {
                rest.remove_prefix(1);
                break;
            }
            rest.remove_prefix(1);
            quoted = !rest.empty() && rest.front() == u'\'';
            if (quoted)
                rest.remove_prefix(1);
        }
        if (rest.empty())
            return false;
        bool const isField = !quoted && fields.find(rest.front()) != View::npos;
        std::size_t const taken = isField ? RunLength(rest) : 1;
        piece = {isField ? rest.front() : u'\0', taken, rest.substr(0, isField ? 0 : 1), quoted};
        rest.remove_prefix(taken);
        return true;
    }

private:
    View rest;
    View fields;
    bool quoted = false;
};

/// Whether a picture names the day by its number, which decides on the form of the month's name.
bool HasDayNumber(View picture)
{
    PictureReader reader(picture, u"dMyg");
    for (Piece piece; reader.Next(piece);)
    {
        if (piece.field == u'd' && piece.count <= 2)
            return true;
    }
    return false;
}

Text FormatDate(LocaleFormats const & formats, SYSTEMTIME const & when, View picture)
{
    Text result;
    auto const & months = HasDayNumber(picture) ? formats.months : formats.aloneMonths;
    PictureReader reader(picture, u"dMyg");
    for (Piece piece; reader.Next(piece);)
    {
        switch (piece.field)
        {
        case u'd':
            result += piece.count <= 2 ? Number(when.wDay, piece.count)
                                       : (piece.count == 3 ? formats.shortDays : formats.days)[when.wDayOfWeek];
            break;
        case u'M':
            result += piece.count <= 2 ? Number(when.wMonth, piece.count)
                                       : (piece.count == 3 ? formats.shortMonths : months)[when.wMonth - 1u];
            break;
        case u'y':
            result += piece.count <= 2 ? Number(when.wYear % 100u, 2) : Number(when.wYear, 4);
            break;
        case u'g':
            for (std::size_t i = 0; i < piece.count; i++)
                result += formats.era;
            break;
        default:
            result += piece.literal;
        }
    }
    return result;
}

/// The text of a field of a time, empty if `flags` leave it out.
std::optional<Text> TimeField(LocaleFormats const & formats, SYSTEMTIME const & when, Piece const & piece, DWORD flags)
{
    std::size_t const width = std::min<std::size_t>(piece.count, 2);
    switch (piece.field)
    {
    case u'h':
        if ((flags & TIME_FORCE24HOURFORMAT) == 0)
            return Number((when.wHour + 11u) % 12 + 1, width);
        [[fallthrough]];
    case u'H':
        return Number(when.wHour, width);
    case u'm':
        if ((flags & TIME_NOMINUTESORSECONDS) != 0)
            return std::nullopt;
        return Number(when.wMinute, width);
    case u's':
        if ((flags & (TIME_NOMINUTESORSECONDS | TIME_NOSECONDS)) != 0)
            return std::nullopt;
        return Number(when.wSecond, width);
    default:
        if ((flags & TIME_NOTIMEMARKER) != 0)
            return std::nullopt;
        Text const & half = formats.halves[when.wHour / 12];
        return piece.count == 1 ? half.substr(0, 1) : half;
    }
}

Text FormatTime(LocaleFormats const & formats, SYSTEMTIME const & when, View picture, DWORD flags)
{
    Text result;
    std::size_t numbersEnd = 0;
    bool leftOut = false;
    PictureReader reader(picture, u"hHmst");
    for (Piece piece; reader.Next(piece);)
    {
        if (piece.field == u'\0')
        {
            // Behind a field that is left out its separators go too. Kept: but not the blanks.
            if (!leftOut || (!piece.quoted && piece.literal == u" "))
                result += piece.literal;
            continue;
        }
        std::optional<Text> const field = TimeField(formats, when, piece, flags);
        leftOut = !field;
        if (leftOut)
        {
            // What stands between it and the number before it goes with it.
            result.resize(numbersEnd);
            continue;
        }
        result += *field;
        if (piece.field != u't')
            numbersEnd = result.size();
    }
    return result;
}

/// False if there is no such date. Fills in the day of the week: what the caller gives is not looked at.
bool CompleteDate(SYSTEMTIME & when)
{
    using namespace std::chrono;
    // The calendar's months and days have 8 bits each, into which any number would be cut.
    if (when.wMonth > 12 || when.wDay > 31)
        return false;
    year_month_day const date = year(when.wYear) / month(when.wMonth) / day(when.wDay);
    if (when.wYear < 1601 || when.wYear > 30827 || !date.ok())
        return false;
    when.wDayOfWeek = static_cast<WORD>(weekday(sys_days(date)).c_encoding());
    return true;
}

SYSTEMTIME Now()
{
    std::time_t const seconds = std::time(nullptr);
    std::tm now{};
    localtime_r(&seconds, &now);
    SYSTEMTIME when{};
    when.wYear = static_cast<WORD>(now.tm_year + 1900);
    when.wMonth = static_cast<WORD>(now.tm_mon + 1);
    when.wDayOfWeek = static_cast<WORD>(now.tm_wday);
    when.wDay = static_cast<WORD>(now.tm_mday);
    when.wHour = static_cast<WORD>(now.tm_hour);
    when.wMinute = static_cast<WORD>(now.tm_min);
    when.wSecond = static_cast<WORD>(now.tm_sec == 60 ? 59 : now.tm_sec); // a leap second has no form here
    return when;
}

int Fail(DWORD code)
{
    SetLastError(code);
    return 0;
}

int Deliver(Text const & text, LPWSTR buffer, int capacity)
{
    if (text.size() >= 0x7FFFFFFF)
        return Fail(ERROR_INVALID_PARAMETER);
    if (capacity != 0)
    {
        if (text.size() >= static_cast<std::size_t>(capacity))
        {
            // What fits is there, with its NUL, although the call fails.
            buffer[text.copy(buffer, static_cast<std::size_t>(capacity) - 1)] = u'\0';
            return Fail(ERROR_INSUFFICIENT_BUFFER);
        }
        text.copy(buffer, text.size());
        buffer[text.size()] = u'\0';
    }
    return static_cast<int>(text.size() + 1);
}

} // namespace

int WINAPI
GetDateFormatW(LCID locale, DWORD flags, SYSTEMTIME const * when, LPCWSTR format, LPWSTR buffer, int capacity)
{
    CheckInputs(when);
    CheckText(format);
    CheckBuffer(buffer, capacity > 0 ? 1 : 0);
    LocaleFormats const * const formats = FindFormats(locale);
    if (formats == nullptr || capacity < 0 || (buffer == nullptr && capacity != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    DWORD const style = flags & (DATE_SHORTDATE | DATE_LONGDATE | DATE_YEARMONTH | DATE_MONTHDAY);
    bool const several = (style & (style - 1)) != 0;
    if (several || (format != nullptr && (style != 0 || (flags & LOCALE_NOUSEROVERRIDE) != 0)))
        return Fail(ERROR_INVALID_FLAGS);
    SYSTEMTIME date = when == nullptr ? Now() : *when;
    if (!CompleteDate(date))
        return Fail(ERROR_INVALID_PARAMETER);
    View const picture = format != nullptr ? View(format)
        : style == DATE_LONGDATE           ? formats->longDate
        : style == DATE_YEARMONTH          ? formats->yearMonth
        : style == DATE_MONTHDAY           ? formats->monthDay
                                           : formats->shortDate;
    return Deliver(FormatDate(*formats, date, picture), buffer, capacity);
}

int WINAPI
GetTimeFormatW(LCID locale, DWORD flags, SYSTEMTIME const * when, LPCWSTR format, LPWSTR buffer, int capacity)
{
    CheckInputs(when);
    CheckText(format);
    CheckBuffer(buffer, capacity > 0 ? 1 : 0);
    LocaleFormats const * const formats = FindFormats(locale);
    if (formats == nullptr || capacity < 0 || (buffer == nullptr && capacity != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    if (format != nullptr && (flags & LOCALE_NOUSEROVERRIDE) != 0)
        return Fail(ERROR_INVALID_FLAGS);
    SYSTEMTIME const time = when == nullptr ? Now() : *when;
    if (time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999)
        return Fail(ERROR_INVALID_PARAMETER);
    View const picture = format != nullptr ? View(format) : View(formats->time);
    return Deliver(FormatTime(*formats, time, picture, flags), buffer, capacity);
}
