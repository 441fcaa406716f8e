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

/// A change that is one function over any kind of text.
template <class Function>
class ChangeBy final : public ProfileChange
{
public:
    explicit ChangeBy(Function body) : function(std::move(body)) {}

    bool Apply(ProfileText<char> & text) override
    {
        return function(text);
    }
    bool Apply(ProfileText<char16_t> & text) override
    {
        return function(text);
    }

private:
    Function function;
};

template <class Function>
BOOL Change(LPCWSTR fileName, bool create, Function function)
{
    CallersName const file(fileName);
    std::lock_guard const guard(ProfileLock());
    ChangeBy change(std::move(function));
    return ChangeProfile(file.Place(), create, change) ? TRUE : FALSE;
}

/// Runs a call; without memory it fails as others do.
template <class Call>
BOOL Guarded(Call && call)
{
    try
    {
        return call();
    }
    catch (std::bad_alloc const &)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    catch (std::length_error const &)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
}

template <class Text>
bool RemoveSection(Text & text, WString const & section)
{
    std::size_t const place = text.FindSection(FoldedName(section));
    if (place != text.none)
    {
        text.RemoveSection(place);
    }
    return place != text.none;
}

BOOL RemoveSectionOf(WString const & section, LPCWSTR fileName)
{
    return Change(fileName, false, [&section](auto & text) { return RemoveSection(text, section); });
}

/// The caller's list, with the NUL behind each of its lines.
WString CallersList(LPCWSTR list)
{
    LPCWSTR end = list;
    while (*end != 0)
    {
        end += CallersText(end).size() + 1;
    }
    return WString(list, end);
}

/// A list as lines of the file.
template <class Text>
typename Text::Text LinesOf(Text const & text, std::u16string_view list)
{
    typename Text::Text lines;
    while (!list.empty())
    {
        std::u16string_view const line = list.substr(0, list.find(u'\0'));
        Encode(line, lines);
        lines += text.LineEnd();
        list.remove_prefix(line.size() + 1);
    }
    return lines;
}

/// Sets a key, or removes it where `value` is null.
BOOL SetKeyOf(WString const & section, WString const & key, WString const * value, LPCWSTR fileName)
{
    auto const setKey = [&](auto & profile)
    {
        std::u16string_view const text = value == nullptr ? std::u16string_view() : std::u16string_view(*value);
        std::size_t const place = profile.FindSection(FoldedName(section));
        if (place != profile.none)
        {
            return profile.SetKey(place, key, value == nullptr ? nullptr : &text);
        }
        if (value != nullptr)
        {
            profile.AddSection(section, key, text);
        }
        return value != nullptr;
    };
    return Change(fileName, value != nullptr, setKey);
}

/// Bytes as they stand in a profile: two digits each, and their sum behind them.
WString RecordText(void const * data, UINT size)
{
    constexpr WCHAR digits[] = TEXT("0123456789ABCDEF");
    auto const * const bytes = static_cast<unsigned char const *>(data);
    WString text;
    unsigned sum = 0;
    for (UINT i = 0; i <= size; i++)
    {
        unsigned const byte = i < size ? bytes[i] : sum & 0xFF;
        sum += byte;
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace

BOOL WINAPI WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR text, LPCWSTR fileName)
{
    CheckTexts(section, key, text, fileName);
    if (section == nullptr)
    {
        if (key == nullptr && text == nullptr)
        {
            std::lock_guard const guard(ProfileLock());
            ForgetProfiles();
            return FailWith(ERROR_SUCCESS);
        }
        return FailWith(ERROR_FILE_NOT_FOUND);
    }
    return Guarded(
        [&]
        {
            CallersName const name(section);
            CallersName const wanted(key);
            CallersName const value(text);
            return key == nullptr ? RemoveSectionOf(name.Text(), fileName)
                                  : SetKeyOf(name.Text(), wanted.Text(), value.Place(), fileName);
        });
}

BOOL WINAPI WritePrivateProfileSectionW(LPCWSTR section, LPCWSTR lines, LPCWSTR fileName)
{
    CheckTexts(section, fileName);
    CheckLines(lines);
    if (section == nullptr)
    {
        return FailWith(ERROR_FILE_NOT_FOUND);
    }
    return Guarded(
        [&]
        {
            CallersName const name(section);
            if (lines == nullptr)
            {
                return RemoveSectionOf(name.Text(), fileName);
            }
            WString const list = CallersList(lines);
            auto const setLines = [&](auto & profile)
            {
                auto const encoded = LinesOf(profile, list);
                std::size_t const place = profile.FindSection(FoldedName(name.Text()));
                if (place == profile.none)
                {
                    profile.AddSection(name.Text(), encoded);
                    return true;
                }
                return profile.ReplaceBody(place, encoded);
            };
            return Change(fileName, true, setLines);
        });
}

BOOL WINAPI WritePrivateProfileStructW(LPCWSTR section, LPCWSTR key, LPVOID data, UINT size, LPCWSTR fileName)
{
    CheckTexts(section, key, fileName);
    CheckArray(static_cast<char const *>(data), size);
    if (data == nullptr)
    {
        return WritePrivateProfileStringW(section, key, nullptr, fileName);
    }
    return Guarded([&] { return WritePrivateProfileStringW(section, key, RecordText(data, size).c_str(), fileName); });
}
