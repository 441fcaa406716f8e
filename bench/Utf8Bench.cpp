// String::Utf8 and String::FromUtf8 beside ICU. Both sides end with a string object of their own, at its exact size.

#include <memory>

#include <unicode/ustring.h>

#include <kvcore/core/String.h>

#include "Jobs.h"

namespace
{

struct Text
{
    char const * name;
    std::u32string letters;
};

/// `size` characters: words of the given letters, with spaces and line ends between them as in prose.
String MakeText(std::u32string const & letters, std::size_t size)
{
    auto random = bench::Random();
    WString text;
    for (std::size_t i = 0; i < size; ++i)
    {
        char32_t const draw = static_cast<char32_t>(random() % 60);
        char32_t const c = draw == 0 ? U'\n' : draw < 9 ? U' ' : letters[random() % letters.size()];
        if (c < 0x10000)
        {
            text += static_cast<WCHAR>(c);
        }
        else
        {
            text += static_cast<WCHAR>(0xD7C0 + (c >> 10));
            text += static_cast<WCHAR>(0xDC00 + (c & 0x3FF));
        }
    }
    return text;
}

/// ICU's fastest way to an own string that we found: convert into scratch memory of the worst case, then copy the
/// result. Asking for the length first passes over the text twice, and growing a string first clears it.
class Icu
{
public:
    explicit Icu(std::size_t units)
        : capacity(static_cast<int32_t>(3 * units)), bytes(new char[3 * units]), elements(new UChar[3 * units])
    {
    }

    std::string ToUtf8(std::u16string const & text)
    {
        int32_t length = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strToUTF8(bytes.get(), capacity, &length, text.data(), static_cast<int32_t>(text.size()), &status);
        return std::string(bytes.get(), static_cast<std::size_t>(length));
    }

    std::u16string FromUtf8(std::string const & text)
    {
        int32_t length = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(elements.get(), capacity, &length, text.data(), static_cast<int32_t>(text.size()), &status);
        return std::u16string(elements.get(), static_cast<std::size_t>(length));
    }

private:
    int32_t capacity;
    std::unique_ptr<char[]> bytes;
    std::unique_ptr<UChar[]> elements;
};

void AddText(std::string const & variant, String const & text)
{
    std::string const utf8 = text.Utf8();
    auto const icu = std::make_shared<Icu>(text.size());
    bench::Require(icu->ToUtf8(text) == utf8, "Utf8/" + variant);
    bench::Require(icu->FromUtf8(utf8) == String::FromUtf8(utf8), "FromUtf8/" + variant);

    bench::Add("Utf8/" + variant + "/ours", utf8.size(), [text] { benchmark::DoNotOptimize(text.Utf8()); });
    bench::Add(
        "Utf8/" + variant + "/icu", utf8.size(),
        [text = std::u16string(text), icu] { benchmark::DoNotOptimize(icu->ToUtf8(text)); });
    bench::Add(
        "FromUtf8/" + variant + "/ours", utf8.size(), [utf8] { benchmark::DoNotOptimize(String::FromUtf8(utf8)); });
    bench::Add(
        "FromUtf8/" + variant + "/icu", utf8.size(), [utf8, icu] { benchmark::DoNotOptimize(icu->FromUtf8(utf8)); });
}

void AddJobs()
{
    Text const texts[] = {
        {"ascii", U"abcdefghijklmnopqrstuvwxyzABCDEFGH0123456789,."},
        // Accented letters among plain ones, as in French or German.
        {"latin", U"abcdefghijklmnopqrstuvwxyz\u00E4\u00F6\u00FC\u00DF\u00E9\u00E8\u00E0\u00E7\u00F1\u00F8\u0142"},
        {"cjk", U"\u65E5\u672C\u8A9E\u4E2D\u6587\u5B57\u6F22\u5716\u50CF\u52D5\u756B\u7DE8\u96C6\u30C6\u30AD\u30B9"},
        {"emoji", U"\U0001F600\U0001F3AC\U0001F3A5\U0001F4F7\U0001F39E\U0001F44D\U0001F680\U0001F4A1"},
    };
    for (Text const & text : texts)
    {
        AddText(text.name, MakeText(text.letters, 16384));
        AddText(std::string(text.name) + "-40", MakeText(text.letters, 40));
    }
}

bench::Source const source(AddJobs);

} // namespace
