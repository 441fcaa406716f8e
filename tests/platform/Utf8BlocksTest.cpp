// UTF-8 is converted in blocks; nothing in front of a text or behind it may be touched, wherever a sequence lies. The
// sanitizers see the memory's ends.

#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

/// Memory of exactly the text's size.
std::unique_ptr<char[]> Exactly(std::string const & text)
{
    std::unique_ptr<char[]> memory(new char[text.size()]);
    std::copy(text.begin(), text.end(), memory.get());
    return memory;
}

WString ToWide(std::string const & text, std::size_t capacity)
{
    std::unique_ptr<WCHAR[]> const target(new WCHAR[capacity]);
    int const written = MultiByteToWideChar(
        CP_UTF8, 0, Exactly(text).get(), static_cast<int>(text.size()), target.get(), static_cast<int>(capacity));
    return WString(target.get(), static_cast<std::size_t>(written));
}

} // namespace

TEST(Utf8Blocks, ASequenceMayLieAnywhereInATextOfAnyLength)
{
    for (std::string const sequence : {"\xC3\xA4", "\xE6\x97\xA5", "\xF0\x9F\x98\x80"})
    {
        for (std::size_t size = sequence.size(); size < 70; ++size)
        {
            for (std::size_t place = 0; place + sequence.size() <= size; ++place)
            {
                std::string text(size, 'x');
                text.replace(place, sequence.size(), sequence);
                WString const wide = ToWide(text, size);
                EXPECT_EQ(size - sequence.size() + (sequence.size() == 4 ? 2 : 1), wide.size());
                EXPECT_EQ(wide, ToWide(text, wide.size())) << place << " in " << size;

                std::unique_ptr<char[]> const back(new char[size]);
                int const written = WideCharToMultiByte(
                    CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), back.get(), static_cast<int>(size), nullptr,
                    nullptr);
                EXPECT_EQ(text, std::string(back.get(), static_cast<std::size_t>(written))) << place << " in " << size;
            }
        }
    }
}
