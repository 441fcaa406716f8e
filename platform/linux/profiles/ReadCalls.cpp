#include <algorithm>
#include <new>
#include <stdexcept>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/profileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

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
    std::copy_n(list.data(), count, buffer);
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

DWORD GiveText(std::u16string_view quoted, LPWSTR buffer, DWORD capacity)
{
    std::u16string_view const text = Unquoted(quoted);
    if (buffer == nullptr || capacity == 0)
    {
        return 0;
    }
    bool const fits = text.size() < capacity;
    DWORD const count = fits ? static_cast<DWORD>(text.size()) : capacity - 1;
    std::copy_n(text.data(), count, buffer);
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

/// The text of a key, and whether there is one.
template <class Unit>
bool FindValue(ProfileText<Unit> const & text, LPCWSTR section, LPCWSTR key, WString & value)
{
    std::size_t const place = text.FindSection(FoldedName(section));
    if (place == ProfileText<Unit>::none)
    {
        return false;
    }
    auto const line = text.FindKey(place, key);
    if (!line.content.empty())
    {
        Decode(text.EntryOf(line.content).value, value);
    }
    return !line.content.empty();
}

bool ReadValue(LPCWSTR section, LPCWSTR key, LPCWSTR fileName, WString & value)
{
    ProfileContent const * const profile = ReadProfile(fileName);
    if (profile == nullptr)
    {
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    return std::visit([&](auto const & text) { return FindValue(text, section, key, value); }, *profile);
}

DWORD ListKeys(LPCWSTR section, std::u16string_view fallback, LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    ProfileContent const * const profile = ReadProfile(fileName);
    if (profile == nullptr)
    {
        return GiveText(fallback, buffer, capacity);
    }
    SetLastError(ERROR_SUCCESS);
    return std::visit(
        [&](auto const & text)
        {
            std::size_t const place = text.FindSection(FoldedName(section));
            return place == text.none ? GiveText(fallback, buffer, capacity)
                                      : GiveList(KeysIn(text, place), buffer, capacity);
        },
        *profile);
}

/// Runs a call under the lock; without memory it fails as others do.
template <class Call>
DWORD Guarded(Call && call, DWORD failed)
{
    try
    {
        std::lock_guard const guard(ProfileLock());
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
    if (section == nullptr)
    {
        return GetPrivateProfileSectionNamesW(buffer, capacity, fileName);
    }
    return Guarded(
        [&]
        {
            std::u16string_view other = fallback == nullptr ? std::u16string_view() : fallback;
            while (!other.empty() && other.back() == ' ')
            {
                other.remove_suffix(1);
            }
            if (key == nullptr)
            {
                return ListKeys(section, other, buffer, capacity, fileName);
            }
            WString value;
            bool const found = ReadValue(section, key, fileName, value);
            return GiveText(found ? value : other, buffer, capacity);
        },
        0);
}

UINT WINAPI GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR fileName)
{
    auto const other = static_cast<UINT>(fallback);
    if (section == nullptr || key == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return other;
    }
    return Guarded(
        [&]
        {
            WString value;
            bool const found = ReadValue(section, key, fileName, value);
            return found && !value.empty() ? NumberIn(WString(Unquoted(value))) : other;
        },
        other);
}

DWORD WINAPI GetPrivateProfileSectionW(LPCWSTR section, LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    if (section == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return GiveNothing(buffer, capacity);
    }
    return Guarded(
        [&]
        {
            ProfileContent const * const profile = ReadProfile(fileName);
            if (profile == nullptr)
            {
                return GiveNothing(buffer, capacity);
            }
            auto const lines = [section](auto const & text)
            {
                std::size_t const place = text.FindSection(FoldedName(section));
                return place == text.none ? WString() : LinesIn(text, place);
            };
            return GiveList(std::visit(lines, *profile), buffer, capacity);
        },
        0);
}

DWORD WINAPI GetPrivateProfileSectionNamesW(LPWSTR buffer, DWORD capacity, LPCWSTR fileName)
{
    return Guarded(
        [&]
        {
            ProfileContent const * const profile = ReadProfile(fileName);
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
    if (section == nullptr || key == nullptr || (data == nullptr && size != 0))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    return static_cast<BOOL>(Guarded(
        [&]() -> DWORD
        {
            WString text;
            if (!ReadValue(section, key, fileName, text) || text.size() != 2 * (std::size_t(size) + 1))
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
            std::copy_n(bytes.data(), size, static_cast<char *>(data));
            return TRUE;
        },
        FALSE));
}
