#include <algorithm>
#include <new>
#include <stdexcept>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/profileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "ProfileFile.h"

using namespace kv::platform;

namespace
{

/// A list into the caller's buffer: whole, or as much of it as leaves room for two NULs. Kept: a whole list that would
/// need all of the room counts as cut, as callers compare the length with that of a cut one.
DWORD GiveList(WString const & list, LPWSTR buffer, DWORD capacity)
{
    if (buffer == nullptr || capacity == 0)
    {
        return 0;
    }
    DWORD const room = capacity < 2 ? 0 : capacity - 2;
    bool const fits = list.size() + 2 <= capacity;
    auto const count = fits ? static_cast<DWORD>(list.size()) : room;
    CopyToCaller(buffer, list.data(), count * sizeof(WCHAR));
    std::fill_n(buffer + count, std::min<DWORD>(capacity - count, 2), WCHAR(0));
    SetLastError(fits ? ERROR_SUCCESS : ERROR_MORE_DATA);
    return count;
}

/// A list without anything in it, where the last error says why.
DWORD GiveNothing(LPWSTR buffer, DWORD capacity)
{
    if (buffer != nullptr)
    {
        std::fill_n(buffer, std::min<DWORD>(capacity, 2), WCHAR(0));
    }
    return 0;
}

std::u16string_view Unquoted(std::u16string_view text)
{
    bool const quoted =
        text.size() >= 2 && text.front() == text.back() && (text.front() == '"' || text.front() == '\'');
    return quoted ? text.substr(1, text.size() - 2) : text;
}

DWORD GiveText(std::u16string_view text, LPWSTR buffer, DWORD capacity)
{
    if (buffer == nullptr || capacity == 0)
    {
        return 0;
    }
    bool const fits = text.size() < capacity;
    DWORD const count = fits ? static_cast<DWORD>(text.size()) : capacity - 1;
    CopyToCaller(buffer, text.data(), count * sizeof(WCHAR));
    buffer[count] = 0;
    if (!fits)
    {
        SetLastError(ERROR_MORE_DATA);
    }
    return count;
}

template <class Unit>
WString NamesIn(ProfileText<Unit> const & text)
{
    WString list;
    for (std::size_t i = 1; i < text.SectionCount(); i++)
    {
        auto const name = text.SectionName(i);
        if (!name.empty())
        {
            Decode(name, list);
            list += WCHAR(0);
        }
    }
    return list;
}

template <class Unit>
WString LinesIn(ProfileText<Unit> const & text, std::size_t section)
{
    WString list;
    text.ForEachLine(
        section,
        [&](typename ProfileText<Unit>::Line const & line)
        {
            auto const entry = text.EntryOf(line.content);
            bool const isComment = line.content.front() == ';';
            Decode(isComment ? line.content : entry.key, list);
            if (entry.hasValue && !isComment)
            {
                list += TEXT('=');
                Decode(entry.value, list);
            }
            list += WCHAR(0);
            return true;
        });
    return list;
}

template <class Unit>
WString KeysIn(ProfileText<Unit> const & text, std::size_t section)
{
    WString list;
    text.ForEachLine(
        section,
        [&](typename ProfileText<Unit>::Line const & line)
        {
            auto const entry = text.EntryOf(line.content);
            if (entry.hasValue && line.content.front() != ';')
            {
                Decode(entry.key, list);
                list += WCHAR(0);
            }
            return true;
        });
    return list;
}

/// The text of a key, and whether there is one. A line without `=` has none, and hides the key's further lines.
template <class Unit>
bool FindValue(ProfileText<Unit> const & text, WString const & section, WString const & key, WString & value)
{
    std::size_t const place = text.FindSection(FoldedName(section));
    if (place == ProfileText<Unit>::none)
    {
        return false;
    }
    auto const entry = text.EntryOf(text.FindKey(place, key).content);
    Decode(entry.value, value);
    return entry.hasValue;
}

bool ReadValue(WString const & section, WString const & key, WString const * fileName, WString & value)
{
    ProfileContent const * const profile = ReadProfile(fileName);
    if (profile == nullptr)
    {
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return std::visit([&](auto const & text) { return FindValue(text, section, key, value); }, *profile);
}

/// The fallback of an empty list is given as it is, with its blanks and quotes.
DWORD
ListKeys(WString const & section, std::u16string_view fallback, LPWSTR buffer, DWORD capacity, WString const * fileName)
{
    ProfileContent const * const profile = ReadProfile(fileName);
    WString list;
    if (profile != nullptr)
    {
        SetLastError(ERROR_SUCCESS);
        list = std::visit(
            [&](auto const & text)
            {
                std::size_t const place = text.FindSection(FoldedAsItIs(section));
                return place == text.none ? WString() : KeysIn(text, place);
            },
            *profile);
    }
    // A list that begins with the empty name looks like the end of a list, and so does one without room for any name.
    bool const isEmpty = list.empty() || list[0] == 0 || capacity <= 2;
    return isEmpty ? GiveText(fallback, buffer, capacity) : GiveList(list, buffer, capacity);
}

/// Runs a call; without memory it fails as others do.
template <class Call>
DWORD Guarded(Call && call, DWORD failed)
{
    try
    {
        return call();
    }
    catch (std::bad_alloc const &)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return failed;
    }
    catch (std::length_error const &)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return failed;
    }
}

unsigned DigitValue(WCHAR c)
{
    WCHAR const lower = c | 0x20;
    return c >= '0' && c <= '9' ? c - TEXT('0') : lower >= 'a' && lower <= 'z' ? lower - TEXT('a') + 10u : 36u;
}

DWORD NumberIn(WString const & text)
{
    std::size_t at = 0;
    bool const negative = !text.empty() && text[0] == '-';
    at += negative || (!text.empty() && text[0] == '+') ? 1 : 0;
    unsigned radix = 10;
    if (at + 1 < text.size() && text[at] == '0')
    {
        WCHAR const letter = text[at + 1];
        radix = letter == 'x' ? 16 : letter == 'o' ? 8 : letter == 'b' ? 2 : 10;
        at += radix != 10 ? 2 : 0;
    }
    DWORD value = 0;
    for (; at < text.size() && DigitValue(text[at]) < radix; at++)
    {
        value = value * radix + DigitValue(text[at]);
    }
    return negative ? 0 - value : value;
}

} // namespace

DWORD WINAPI GetPrivateProfileStringW(
    LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    CheckTexts(section, key, fallback, fileName);
    CheckBuffer(buffer, capacity);
    if (section == nullptr)
    {
        return GetPrivateProfileSectionNamesW(buffer, capacity, fileName);
    }
    return Guarded(
        [&]
        {
            CallersName const name(section);
            CallersName const wanted(key);
            CallersName const file(fileName);
            std::u16string_view other = CallersText(fallback);
            std::lock_guard const guard(ProfileLock());
            if (key == nullptr)
            {
                return ListKeys(name.Text(), other, buffer, capacity, file.Place());
            }
            while (!other.empty() && other.back() == ' ')
            {
                other.remove_suffix(1);
            }
            WString value;
            bool const found = ReadValue(name.Text(), wanted.Text(), file.Place(), value);
            return GiveText(Unquoted(found ? value : other), buffer, capacity);
        },
        0);
}

UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR fileName)
{
    CheckTexts(section, key, fileName);
    auto const other = static_cast<UINT>(fallback);
    if (section == nullptr || key == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return other;
    }
    return Guarded(
        [&]
        {
            CallersName const name(section);
            CallersName const wanted(key);
            CallersName const file(fileName);
            std::lock_guard const guard(ProfileLock());
            WString value;
            bool const found = ReadValue(name.Text(), wanted.Text(), file.Place(), value);
            WString const digits(Unquoted(value));
            return found && !digits.empty() ? NumberIn(digits) : other;
        },
        other);
}

DWORD WINAPI GetPrivateProfileSectionW(LPCWSTR section, LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    CheckTexts(section, fileName);
    CheckBuffer(buffer, capacity);
    if (section == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return GiveNothing(buffer, capacity);
    }
    return Guarded(
        [&]
        {
            CallersName const name(section);
            CallersName const file(fileName);
            std::lock_guard const guard(ProfileLock());
            ProfileContent const * const profile = ReadProfile(file.Place());
            if (profile == nullptr)
            {
                return GiveNothing(buffer, capacity);
            }
            auto const lines = [&name](auto const & text)
            {
                std::size_t const place = text.FindSection(FoldedAsItIs(name.Text()));
                return place == text.none ? WString() : LinesIn(text, place);
            };
            return GiveList(std::visit(lines, *profile), buffer, capacity);
        },
        0);
}

DWORD WINAPI GetPrivateProfileSectionNamesW(LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    CheckText(fileName);
    CheckBuffer(buffer, capacity);
    return Guarded(
        [&]
        {
            CallersName const file(fileName);
            std::lock_guard const guard(ProfileLock());
            ProfileContent const * const profile = ReadProfile(file.Place());
            if (profile == nullptr)
            {
                return GiveNothing(buffer, capacity);
            }
            return GiveList(std::visit([](auto const & text) { return NamesIn(text); }, *profile), buffer, capacity);
        },
        0);
}

BOOL WINAPI GetPrivateProfileStructW(LPCWSTR section, LPCWSTR key, LPVOID data, UINT size, LPCWSTR fileName)
{
    CheckTexts(section, key, fileName);
    CheckBuffer(data, size);
    if (section == nullptr || key == nullptr || (data == nullptr && size != 0))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    return static_cast<BOOL>(Guarded(
        [&]() -> DWORD
        {
            CallersName const name(section);
            CallersName const wanted(key);
            CallersName const file(fileName);
            std::lock_guard const guard(ProfileLock());
            WString text;
            if (!ReadValue(name.Text(), wanted.Text(), file.Place(), text) ||
                text.size() != 2 * (std::size_t(size) + 1))
            {
                return static_cast<DWORD>(
                    FailWith(GetLastError() == ERROR_SUCCESS ? ERROR_BAD_LENGTH : GetLastError()));
            }
            std::string bytes;
            unsigned sum = 0;
            for (std::size_t i = 0; i < text.size(); i += 2)
            {
                unsigned const high = DigitValue(text[i]);
                unsigned const low = DigitValue(text[i + 1]);
                if (high > 15 || low > 15)
                {
                    return static_cast<DWORD>(FailWith(ERROR_INVALID_DATA));
                }
                bytes += static_cast<char>(high * 16 + low);
                sum += i + 2 < text.size() ? high * 16 + low : 0;
            }
            if (static_cast<unsigned char>(bytes.back()) != (sum & 0xFF))
            {
                return static_cast<DWORD>(FailWith(ERROR_INVALID_DATA));
            }
            CopyToCaller(data, bytes.data(), size);
            return TRUE;
        },
        FALSE));
}
