#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

#include <kvcore/core/ScratchBuffer.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/CharacterClass.h>
#include <kvcore/platform/win32.h>

namespace
{

constexpr unsigned int rest = unsigned(-1);

/// `count` for the standard string, whose own mark for the rest is wider on some targets.
std::size_t StandardCount(unsigned int count)
{
    return count == rest ? WString::npos : count;
}

std::size_t CheckedLength(unsigned int size)
{
    if (size == rest)
    {
        throw std::length_error("string too long");
    }
    return size;
}

std::size_t CheckedCount(int count)
{
    if (count < 0)
    {
        throw std::length_error("string too long");
    }
    return std::size_t(count);
}

std::size_t CheckedPosition(std::size_t position, std::size_t size)
{
    if (position > size)
    {
        throw std::out_of_range("invalid string position");
    }
    return position;
}

/// `size` for the platform's calls, which count in int.
int PlatformLength(std::size_t size)
{
    return int(std::min<std::size_t>(size, std::size_t(std::numeric_limits<int>::max())));
}

} // namespace

// Construction and assignment

bool String::LocaleLess::operator()(String const & left, String const & right) const
{
    return left.Compare(right, -1) < 0;
}

String::String(WString const & text, unsigned int pos, unsigned int count)
    : WString(text, CheckedPosition(pos, text.size()), StandardCount(count))
{
}

String::String(WCHAR const * text) : WString(text) {}

String::String(WCHAR const * text, unsigned int count) : WString(text, CheckedLength(count)) {}

String & String::operator=(WString const & text)
{
    WString::operator=(text);
    return *this;
}

String & String::operator=(WString && text) noexcept
{
    WString::operator=(std::move(text));
    return *this;
}

String const & String::operator=(WCHAR const * text)
{
    WString::operator=(text);
    return *this;
}

String & String::operator=(std::initializer_list<WCHAR> elements)
{
    WString::operator=(elements);
    return *this;
}

String String::FromChar(WCHAR c, int count)
{
    return WString(CheckedCount(count), c);
}

// Appending

String & String::operator<<(String const & text)
{
    append(text);
    return *this;
}

String & String::operator<<(WCHAR const * text)
{
    append(text);
    return *this;
}

String & String::operator<<(int value)
{
    append(FromNum(value, 10));
    return *this;
}

String & String::operator<<(__int64 const & value)
{
    append(FromNum(value, 10));
    return *this;
}

String & String::operator<<(double value)
{
    append(FromFormat(TEXT("%lf"), value));
    return *this;
}

String & String::operator<<(GUID const & value)
{
    append(FromGUID(value));
    return *this;
}

// Comparison and prefixes

namespace
{

/// The difference of two lengths, brought into the range of int.
int LengthDifference(std::size_t left, std::size_t right)
{
    return left >= right ? PlatformLength(left - right) : -PlatformLength(right - left);
}

int CompareStrings(WString const & left, WString const & right, int count, DWORD flags)
{
    std::size_t const limit = count < 0 ? WString::npos : std::size_t(count);
    std::size_t const leftLength = std::min(left.size(), limit);
    std::size_t const rightLength = std::min(right.size(), limit);
    if (std::memcmp(left.data(), right.data(), std::min(leftLength, rightLength) * sizeof(WCHAR)) == 0)
    {
        return LengthDifference(leftLength, rightLength);
    }
    // Kept: the whole strings, not the limited ones. A limited comparison whose prefixes differ has always been decided
    // by the full texts, and sorted lists of callers stand in that order.
    return CompareStringW(
               LOCALE_USER_DEFAULT, flags, left.data(), PlatformLength(left.size()), right.data(),
               PlatformLength(right.size())) -
        CSTR_EQUAL;
}

bool SameElements(WCHAR const * left, WCHAR const * right, std::size_t count)
{
    return std::memcmp(left, right, count * sizeof(WCHAR)) == 0;
}

std::size_t MeasuredLength(WCHAR const * text, unsigned int length)
{
    return length == rest ? std::char_traits<WCHAR>::length(text) : length;
}

bool Begins(WString const & whole, WCHAR const * text, std::size_t length)
{
    return length <= whole.size() && SameElements(whole.data(), text, length);
}

bool Ends(WString const & whole, WCHAR const * text, std::size_t length)
{
    return length <= whole.size() && SameElements(whole.data() + (whole.size() - length), text, length);
}

} // namespace

int String::Compare(WString const & other, int count) const
{
    return CompareStrings(*this, other, count, 0);
}

int String::CompareNoCase(WString const & other, int count) const
{
    return CompareStrings(*this, other, count, NORM_IGNORECASE);
}

bool String::BeginsWith(WCHAR const * text, unsigned int length) const
{
    return Begins(*this, text, MeasuredLength(text, length));
}

bool String::BeginsWith(WString const & text) const
{
    return Begins(*this, text.data(), text.size());
}

bool String::EndsWith(WCHAR const * text, unsigned int length) const
{
    return Ends(*this, text, MeasuredLength(text, length));
}

bool String::EndsWith(WString const & text) const
{
    return Ends(*this, text.data(), text.size());
}

// Parts and edits

String String::Left(unsigned int count) const
{
    return WString(*this, 0, StandardCount(count));
}

String String::Right(unsigned int count) const
{
    if (count >= size())
    {
        return *this;
    }
    // Kept: a tail is copied as a NUL-terminated text. Callers cut padded fields with it.
    return WString(c_str() + (size() - count));
}

String String::Mid(unsigned int pos, unsigned int count) const
{
    return WString(*this, CheckedPosition(pos, size()), StandardCount(count));
}

String String::Trim(bool left, bool right) const
{
    auto const isText = [](WCHAR c) { return !kv::platform::IsSpace(c); };
    auto const first = left ? std::find_if(begin(), end(), isText) : begin();
    auto const last = right ? std::find_if(rbegin(), std::make_reverse_iterator(first), isText).base() : end();
    return WString(first, last);
}

String String::Trim(WString const & set, bool left, bool right) const
{
    std::size_t const first = left ? find_first_not_of(set) : 0;
    if (first == npos)
    {
        return String();
    }
    // The search for the last one cannot end before `first`, unless nothing is left: then npos + 1 is 0.
    std::size_t const behind = right ? find_last_not_of(set) + 1 : size();
    return WString(*this, first, behind - first);
}

String String::Trim(WCHAR const * set, bool left, bool right) const
{
    return Trim(WString(set), left, right);
}

String String::Trim(WCHAR c, bool left, bool right) const
{
    return Trim(WString(1, c), left, right);
}

namespace
{

String MappedCase(String const & text, DWORD mapping)
{
    if (text.empty() || text.size() > std::size_t(std::numeric_limits<int>::max()))
    {
        return text;
    }
    int const length = int(text.size());
    int const needed = LCMapStringW(LOCALE_USER_DEFAULT, mapping, text.data(), length, nullptr, 0);
    if (needed <= 0)
    {
        return text;
    }
    kv::detail::ScratchBuffer<WCHAR, 256> mapped{std::size_t(needed)};
    int const written = LCMapStringW(LOCALE_USER_DEFAULT, mapping, text.data(), length, mapped.Data(), needed);
    return written > 0 ? String(WString(mapped.Data(), std::size_t(written))) : text;
}

} // namespace

String String::LowerCase() const
{
    return MappedCase(*this, LCMAP_LOWERCASE);
}

String String::UpperCase() const
{
    return MappedCase(*this, LCMAP_UPPERCASE);
}

String & String::Replace(WString const & what, WString with, unsigned int maxCount)
{
    std::size_t const most = maxCount == rest ? size() : maxCount;
    if (most == 0 || (what.empty() && with.empty()))
    {
        return *this;
    }
    // The new text is built beside the old one: replacing in place would move the tail once for every replacement.
    WString result;
    std::size_t position = 0;
    std::size_t found = find(what);
    if (found == npos)
    {
        return *this;
    }
    for (std::size_t count = 0; count < most && found != npos; ++count, found = find(what, position))
    {
        result.append(*this, position, found - position);
        result.append(with);
        position = found + what.size();
    }
    result.append(*this, position);
    swap(result);
    return *this;
}

unsigned int String::Remove(WCHAR c)
{
    erase(std::remove(begin(), end(), c), end());
    // Kept: the position that the last search, which found nothing, came back with. Callers have learned to ignore it.
    return rest;
}

void String::Insert(int pos, WCHAR c, int count)
{
    CheckedPosition(pos < 0 ? npos : std::size_t(pos), size());
    insert(std::size_t(pos), CheckedCount(count), c);
}
