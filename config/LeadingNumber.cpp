#include <cstdlib>
#include <limits>
#include <string>

#include <kvcore/config/LeadingNumber.h>

namespace kv::detail
{

namespace
{

std::size_t SkipSpace(WString const & text)
{
    std::size_t const start = text.find_first_not_of(TEXT(" \t\n\v\f\r"));
    return start == WString::npos ? text.size() : start;
}

} // namespace

double LeadingDouble(WString const & text)
{
    // No element of a number lies beyond ASCII, and the C++ library's own narrow routine takes the same forms.
    std::string narrow;
    for (std::size_t i = SkipSpace(text); i < text.size() && text[i] != 0 && text[i] < 0x80; ++i)
    {
        narrow += static_cast<char>(text[i]);
    }
    return std::strtod(narrow.c_str(), nullptr);
}

__int64 LeadingInt64(WString const & text)
{
    using Limits = std::numeric_limits<__int64>;
    std::size_t i = SkipSpace(text);
    bool const isNegative = i < text.size() && text[i] == TEXT('-');
    if (i < text.size() && (isNegative || text[i] == TEXT('+')))
    {
        ++i;
    }
    __int64 value = 0; // counted down, since the least number has no positive twin
    for (; i < text.size() && text[i] >= TEXT('0') && text[i] <= TEXT('9'); ++i)
    {
        int const digit = text[i] - TEXT('0');
        if (value < (Limits::min() + digit) / 10)
        {
            return isNegative ? Limits::min() : Limits::max();
        }
        value = value * 10 - digit;
    }
    if (isNegative)
    {
        return value;
    }
    return value == Limits::min() ? Limits::max() : -value;
}

} // namespace kv::detail
