#include <kvcore/examples/storyboard/DescriptionTexts.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string_view>

namespace Storyboard
{

namespace
{

using Moments = std::chrono::duration<std::int64_t, std::ratio<1, ticksPerSecond>>;

std::string Digits(unsigned value, int count)
{
    std::string digits;
    while (--count >= 0)
    {
        digits += "0123456789ABCDEF"[(value >> (4 * count)) & 15];
    }
    return digits;
}

/// The value of exactly `count` upper-case digits at `at`, or -1.
int HexAt(String const & text, std::size_t at, std::size_t count)
{
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i)
    {
        WCHAR const c = i < text.size() ? text[i] : WCHAR(0);
        int const digit = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (digit < 0)
        {
            return -1;
        }
        value = value * 16 + digit;
    }
    return value;
}

/// Whether XML may hold a character. The line ends and blanks that it may hold are written as references.
bool IsForXml(char32_t c)
{
    return (c >= 0x20 && c < 0xD800) || (c >= 0xE000 && c < 0xFFFE) || (c >= 0x10000 && c < 0x110000) || c == '\t' ||
        c == '\n' || c == '\r';
}

struct Character
{
    char32_t code;
    std::size_t size; ///< 0 for what is no character
};

/// The character that begins at `at`, in the one form that UTF-8 has for it.
Character CharacterAt(std::string const & text, std::size_t at)
{
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(i < text.size() ? text[i] : '\0'); };
    unsigned char const first = byte(at);
    std::size_t const size = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    constexpr unsigned masks[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    char32_t code = first & masks[size];
    for (std::size_t i = 1; i < size; ++i)
    {
        if ((byte(at + i) & 0xC0) != 0x80)
        {
            return {0, 0};
        }
        code = code << 6 | (byte(at + i) & 0x3Fu);
    }
    return size == 0 || first > 0xF4 || code < least[size] || !IsForXml(code) ? Character{0, 0} : Character{code, size};
}

Character CharacterAt(String const & text, std::size_t at)
{
    auto const unit = [&](std::size_t i) { return static_cast<char32_t>(i < text.size() ? text[i] : WCHAR(0)); };
    char32_t const first = unit(at);
    char32_t const second = unit(at + 1);
    if (first >= 0xD800 && first < 0xDC00 && second >= 0xDC00 && second < 0xE000)
    {
        return {0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00), 2};
    }
    return IsForXml(first) ? Character{first, 1} : Character{0, 0};
}

} // namespace

String SpelledName(std::string const & name)
{
    std::string spelled;
    for (std::size_t at = 0; at < name.size();)
    {
        Character const character = CharacterAt(name, at);
        if (character.size == 0)
        {
            spelled += "\\x" + Digits(static_cast<unsigned char>(name[at++]), 2);
            continue;
        }
        spelled += character.code == '\\' ? "\\\\" : name.substr(at, character.size);
        at += character.size;
    }
    return String::FromUtf8(spelled);
}

std::optional<std::string> NameOf(String const & spelled)
{
    std::string name;
    for (std::size_t at = 0; at < spelled.size();)
    {
        Character const character = CharacterAt(spelled, at);
        if (character.code != '\\')
        {
            if (character.size == 0)
            {
                return std::nullopt;
            }
            name += String(spelled.substr(at, character.size)).Utf8();
            at += character.size;
        }
        else if (at + 1 < spelled.size() && spelled[at + 1] == '\\')
        {
            name += '\\';
            at += 2;
        }
        else
        {
            int const byte = at + 1 < spelled.size() && spelled[at + 1] == 'x' ? HexAt(spelled, at + 2, 2) : -1;
            if (byte < 0)
            {
                return std::nullopt;
            }
            name += static_cast<char>(byte);
            at += 4;
        }
    }
    return SpelledName(name) == spelled ? std::optional(name) : std::nullopt;
}

String SpelledText(String const & text)
{
    String spelled;
    for (std::size_t at = 0; at < text.size();)
    {
        Character const character = CharacterAt(text, at);
        if (character.size == 0)
        {
            spelled += String::FromUtf8("\\u" + Digits(static_cast<unsigned>(text[at++]), 4));
            continue;
        }
        spelled += character.code == '\\' ? String(TEXT("\\\\")) : String(text.substr(at, character.size));
        at += character.size;
    }
    return spelled;
}

std::optional<String> TextOf(String const & spelled)
{
    String text;
    for (std::size_t at = 0; at < spelled.size();)
    {
        if (spelled[at] != '\\')
        {
            text += spelled[at++];
        }
        else if (at + 1 < spelled.size() && spelled[at + 1] == '\\')
        {
            text += WCHAR('\\');
            at += 2;
        }
        else
        {
            int const unit = at + 1 < spelled.size() && spelled[at + 1] == 'u' ? HexAt(spelled, at + 2, 4) : -1;
            if (unit < 0)
            {
                return std::nullopt;
            }
            text += static_cast<WCHAR>(unit);
            at += 6;
        }
    }
    return SpelledText(text) == spelled ? std::optional(text) : std::nullopt;
}

String SpelledLength(Ticks length)
{
    std::string text = std::to_string(length / ticksPerSecond);
    if (Ticks const rest = length % ticksPerSecond; rest != 0)
    {
        std::string const decimals = std::to_string(ticksPerSecond + rest).substr(1);
        text += '.' + decimals.substr(0, decimals.find_last_not_of('0') + 1);
    }
    return String::FromUtf8(text);
}

std::optional<Ticks> LengthOf(String const & spelled)
{
    std::string text = spelled.Utf8();
    std::size_t const point = text.find('.');
    std::size_t const decimals = point == std::string::npos ? 0 : text.size() - point - 1;
    if (decimals > 7 || (point != std::string::npos && decimals == 0) || point == 0)
    {
        return std::nullopt;
    }
    if (point != std::string::npos)
    {
        text.erase(point, 1);
    }
    return NumberOf(String::FromUtf8(text + std::string(7 - decimals, '0')), std::numeric_limits<std::int64_t>::max());
}

String SpelledMoment(Ticks moment)
{
    using namespace std::chrono;
    auto const whole = floor<days>(Moments(moment));
    year_month_day const date(sys_days(1601y / January / 1) + whole);
    std::int64_t const rest = (Moments(moment) - whole).count();
    std::int64_t const seconds = rest / ticksPerSecond;
    char text[64];
    std::snprintf(
        text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%07dZ", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(seconds / 3600),
        static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60), static_cast<int>(rest % ticksPerSecond));
    return String::FromUtf8(text);
}

std::optional<Ticks> MomentOf(String const & spelled)
{
    using namespace std::chrono;
    std::string const text = spelled.Utf8();
    int year, hour, minute, second, rest;
    unsigned month, day;
    if (text.size() > 30 ||
        std::sscanf(
            text.c_str(), "%5d-%2u-%2uT%2d:%2d:%2d.%7dZ", &year, &month, &day, &hour, &minute, &second, &rest) != 7)
    {
        return std::nullopt;
    }
    year_month_day const date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!date.ok() || year < 1601 || year > 30827)
    {
        return std::nullopt;
    }
    std::int64_t const daysBefore = (sys_days(date) - sys_days(1601y / January / 1)).count();
    Ticks const moment =
        daysBefore * 86400 * ticksPerSecond + (hour * 3600 + minute * 60 + second) * ticksPerSecond + rest;
    return SpelledMoment(moment) == spelled ? std::optional(moment) : std::nullopt;
}

String SpelledNumber(std::int64_t number)
{
    return String::FromUtf8(std::to_string(number));
}

std::optional<std::int64_t> NumberOf(String const & spelled, std::int64_t most)
{
    std::string const text = spelled.Utf8();
    std::int64_t number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool const whole = error == std::errc() && end == text.data() + text.size() && !text.empty() && text[0] != '-';
    return whole && number <= most ? std::optional(number) : std::nullopt;
}

} // namespace Storyboard
