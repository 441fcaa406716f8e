#include <new>
#include <stdexcept>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/profileapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

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
    try
    {
        std::lock_guard const guard(ProfileLock());
        ChangeBy change(std::move(function));
        return ChangeProfile(fileName, create, change) ? TRUE : FALSE;
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
bool RemoveSection(Text & text, LPCWSTR section)
{
    std::size_t const place = text.FindSection(FoldedName(section));
    if (place != text.none)
    {
        text.RemoveSection(place);
    }
    return place != text.none;
}

BOOL RemoveSectionOf(LPCWSTR section, LPCWSTR fileName)
{
    return Change(fileName, false, [section](auto & text) { return RemoveSection(text, section); });
}

/// The caller's list as lines of the file.
template <class Text>
typename Text::Text LinesOf(Text const & text, LPCWSTR list)
{
    typename Text::Text lines;
    for (std::u16string_view line = list; !line.empty(); line = line.data() + line.size() + 1)
    {
        Encode(line, lines);
        lines += text.LineEnd();
    }
    return lines;
}

} // namespace

BOOL WINAPI WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR text, LPCWSTR fileName)
{
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
    if (key == nullptr)
    {
        return RemoveSectionOf(section, fileName);
    }
    std::u16string_view const value = text == nullptr ? std::u16string_view() : text;
    auto const setKey = [&](auto & profile)
    {
        std::size_t const place = profile.FindSection(FoldedName(section));
        if (place != profile.none)
        {
            return profile.SetKey(place, key, text == nullptr ? nullptr : &value);
        }
        if (text != nullptr)
        {
            profile.AddSection(section, key, value);
        }
        return text != nullptr;
    };
    return Change(fileName, text != nullptr, setKey);
}

BOOL WINAPI WritePrivateProfileSectionW(LPCWSTR section, LPCWSTR lines, LPCWSTR fileName)
{
    if (section == nullptr)
    {
        return FailWith(ERROR_FILE_NOT_FOUND);
    }
    if (lines == nullptr)
    {
        return RemoveSectionOf(section, fileName);
    }
    auto const setLines = [&](auto & profile)
    {
        auto const encoded = LinesOf(profile, lines);
        std::size_t const place = profile.FindSection(FoldedName(section));
        if (place == profile.none)
        {
            profile.AddSection(section, encoded);
            return true;
        }
        return profile.ReplaceBody(place, encoded);
    };
    return Change(fileName, true, setLines);
}

BOOL WINAPI WritePrivateProfileStructW(LPCWSTR section, LPCWSTR key, LPVOID data, UINT size, LPCWSTR fileName)
{
    if (data == nullptr)
    {
        return WritePrivateProfileStringW(section, key, nullptr, fileName);
    }
    try
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
        return WritePrivateProfileStringW(section, key, text.c_str(), fileName);
    }
    catch (std::bad_alloc const &)
    {
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
}
