#include <algorithm>
#include <iterator>
#include <limits>
#include <type_traits>

#include <kvcore/config/LeadingNumber.h>
#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/platform/CharacterClass.h>
#include <kvcore/platform/win32.h>

#include "SectionedConfigStore.h"

namespace
{

WCHAR const * SkipSpaces(WCHAR const * text)
{
    while (kv::platform::IsSpace(*text))
    {
        text++;
    }
    return text;
}

/// The number that a text begins with, or 0; the nearest one that the type has if that is too large.
template <class Integer>
Integer IntegerIn(String const & text)
{
    using Magnitude = std::make_unsigned_t<Integer>;
    WCHAR const * at = SkipSpaces(text.c_str());
    bool const negative = *at == '-';
    at += negative || *at == '+' ? 1 : 0;
    Magnitude const largest = static_cast<Magnitude>(std::numeric_limits<Integer>::max()) + (negative ? 1u : 0u);
    Magnitude magnitude = 0;
    for (; *at >= '0' && *at <= '9'; at++)
    {
        auto const digit = static_cast<Magnitude>(*at - '0');
        if (magnitude > (largest - digit) / 10)
        {
            magnitude = largest;
            break;
        }
        magnitude = magnitude * 10 + digit;
    }
    return static_cast<Integer>(negative ? Magnitude(0) - magnitude : magnitude);
}

/// Reads a value through `convert`, if it is there.
template <class Value, class Convert>
bool Get(String const * text, Value & value, Convert && convert)
{
    if (text != nullptr)
    {
        value = static_cast<Value>(convert(*text));
    }
    return text != nullptr;
}

int Int32In(String const & text)
{
    return IntegerIn<int>(text);
}

unsigned int Unsigned32In(String const & text)
{
    return static_cast<unsigned int>(IntegerIn<int>(text));
}

bool BooleanIn(String const & text)
{
    return IntegerIn<int>(text) != 0;
}

} // namespace

// Integers

bool SectionedConfigData::GetInteger(String const & section, String const & key, short & value) const
{
    return Get(implementation->Find(section, key), value, Int32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, unsigned short & value) const
{
    return Get(implementation->Find(section, key), value, Int32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, int & value) const
{
    return Get(implementation->Find(section, key), value, Int32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, unsigned int & value) const
{
    return Get(implementation->Find(section, key), value, Unsigned32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, long & value) const
{
    return Get(implementation->Find(section, key), value, Int32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, unsigned long & value) const
{
    return Get(implementation->Find(section, key), value, Unsigned32In);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, long long & value) const
{
    return Get(implementation->Find(section, key), value, IntegerIn<long long>);
}

bool SectionedConfigData::GetInteger(String const & section, String const & key, unsigned long long & value) const
{
    return Get(implementation->Find(section, key), value, IntegerIn<long long>);
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, short value)
{
    return SetInteger(section, key, static_cast<int>(value));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, unsigned short value)
{
    return SetInteger(section, key, static_cast<int>(value));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, int value)
{
    WCHAR text[16];
    _itow_s(value, text, std::size(text), 10);
    implementation->Place(section, key) = text;
    return true;
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, unsigned int value)
{
    return SetInteger(section, key, static_cast<int>(value));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, long value)
{
    return SetInteger(section, key, static_cast<int>(value));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, unsigned long value)
{
    return SetInteger(section, key, static_cast<int>(value));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, long long value)
{
    return SetString(section, key, String::FromNum(static_cast<__int64>(value)));
}

bool SectionedConfigData::SetInteger(String const & section, String const & key, unsigned long long value)
{
    return SetInteger(section, key, static_cast<long long>(value));
}

// Booleans

bool SectionedConfigData::GetBoolean(String const & section, String const & key, bool & value) const
{
    return Get(implementation->Find(section, key), value, BooleanIn);
}

bool SectionedConfigData::GetBoolean(String const & section, String const & key, int & value) const
{
    return Get(implementation->Find(section, key), value, BooleanIn);
}

bool SectionedConfigData::SetBoolean(String const & section, String const & key, bool value)
{
    return SetString(section, key, value ? TEXT("1") : TEXT("0"));
}

bool SectionedConfigData::SetBoolean(String const & section, String const & key, int value)
{
    return SetBoolean(section, key, value != 0);
}

// Floating-point numbers

bool SectionedConfigData::GetFloat(String const & section, String const & key, double & value) const
{
    return Get(implementation->Find(section, key), value, kv::detail::LeadingDouble);
}

bool SectionedConfigData::SetFloat(String const & section, String const & key, double value)
{
    // Kept: the text had its place in a buffer of 32 characters, and files hold what fitted into it.
    constexpr std::size_t longest = 31;
    String text = String::FromFormat(TEXT("%lf"), value);
    text.resize(std::min(text.size(), longest));
    return SetString(section, key, text);
}

// Geometry

bool SectionedConfigData::GetPoint(String const & section, String const & key, tagPOINT & value) const
{
    tagPOINT read;
    bool const complete = GetInteger(section, key + TEXT("X"), read.x) && GetInteger(section, key + TEXT("Y"), read.y);
    value = complete ? read : value;
    return complete;
}

bool SectionedConfigData::SetPoint(String const & section, String const & key, tagPOINT const & value)
{
    SetInteger(section, key + TEXT("X"), value.x);
    return SetInteger(section, key + TEXT("Y"), value.y);
}

bool SectionedConfigData::GetSize(String const & section, String const & key, tagSIZE & value) const
{
    tagPOINT read;
    bool const complete = GetPoint(section, key, read);
    value = complete ? tagSIZE{read.x, read.y} : value;
    return complete;
}

bool SectionedConfigData::SetSize(String const & section, String const & key, tagSIZE const & value)
{
    return SetPoint(section, key, {value.cx, value.cy});
}

bool SectionedConfigData::GetRect(String const & section, String const & key, tagRECT & value) const
{
    tagRECT read;
    bool const complete = GetInteger(section, key + TEXT("Left"), read.left) &&
        GetInteger(section, key + TEXT("Top"), read.top) && GetInteger(section, key + TEXT("Right"), read.right) &&
        GetInteger(section, key + TEXT("Bottom"), read.bottom);
    value = complete ? read : value;
    return complete;
}

bool SectionedConfigData::SetRect(String const & section, String const & key, tagRECT const & value)
{
    SetInteger(section, key + TEXT("Left"), value.left);
    SetInteger(section, key + TEXT("Top"), value.top);
    SetInteger(section, key + TEXT("Right"), value.right);
    return SetInteger(section, key + TEXT("Bottom"), value.bottom);
}
