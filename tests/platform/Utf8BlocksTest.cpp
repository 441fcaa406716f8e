// UTF-8 is converted in blocks; nothing in front of a text or behind it may be touched, wherever a sequence lies. The
// sanitizers see the memory's ends.

#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

TEST(Utf8Blocks, ASequenceMayLieAnywhereInATextOfAnyLength)
{
    for (std::string const sequence : {"\xC3\xA4", "\xE6\x97\xA5", "\xF0\x9F\x98\x80"})
    {
        std::size_t const units = sequence.size() == 4 ? 2 : 1;
        for (std::size_t size = sequence.size(); size < 70; ++size)
        {
            for (std::size_t place = 0; place + sequence.size() <= size; ++place)
            {
                std::unique_ptr<char[]> const text(new char[size]);
                std::fill_n(text.get(), size, 'x');
                std::copy(sequence.begin(), sequence.end(), text.get() + place);
                std::size_t const length = size - sequence.size() + units;
                std::unique_ptr<WCHAR[]> const wide(new WCHAR[length]);
                std::unique_ptr<char[]> const back(new char[size]);

                ASSERT_EQ(int(length), MultiByteToWideChar(CP_UTF8, 0, text.get(), int(size), wide.get(), int(length)));
                ASSERT_EQ(
                    int(size),
                    WideCharToMultiByte(CP_UTF8, 0, wide.get(), int(length), back.get(), int(size), nullptr, nullptr));
                EXPECT_EQ(std::string(text.get(), size), std::string(back.get(), size)) << place << " in " << size;
            }
        }
    }
}
