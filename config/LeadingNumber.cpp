#include <kvcore/config/LeadingNumber.h>

#include <limits>
#include <string>

#include <kvcore/core/NumberText.h>
#include <kvcore/platform/CharacterClass.h>

namespace kv::detail
{

namespace
{

std::size_t SkipSpace(WString const & text)
{
    std::size_t start = 0;
    while (start < text.size() && kv::platform::IsSpace(text[start]))
    {
        ++start;
    }
    return start;
}

} // namespace

double LeadingDouble(WString const & text)
{
    // No element of a number lies beyond ASCII: the first one that does ends it.
    std::string narrow;
    for (std::size_t i = SkipSpace(text); i < text.size() && text[i] != 0 && text[i] < 0x80; ++i)
    {
        bool const upper = text[i] >= TEXT('A') && text[i] <= TEXT('Z');
        narrow += static_cast<char>(upper ? text[i] | 0x20 : text[i]);
    }
    double value = 0;
    ReadDouble(narrow.data(), narrow.data() + narrow.size(), value);
    return value;
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
