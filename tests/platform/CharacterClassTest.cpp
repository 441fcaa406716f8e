#include <kvcore/platform/CharacterClass.h>
#include <support/Digest.h>

namespace
{

using Predicate = bool (*)(WCHAR);

struct ClassCase
{
    char const * name;
    Predicate accepts;
    unsigned count;       ///< Of all units.
    std::uint32_t digest; ///< Of the units, in order.
};

// Measured with the Windows C run-time library's isw* functions.
ClassCase const classCases[] = {
    {"IsSpace", [](WCHAR c) { return kv::platform::IsSpace(c); }, 24, 0x44595AAC},
    {"IsDigit", kv::platform::IsDigit, 373, 0xB497DC1C},
    {"IsAlpha", kv::platform::IsAlpha, 49027, 0x2132B4D3},
    {"IsAlphaNumeric", kv::platform::IsAlphaNumeric, 49400, 0x20FD8C32},
    {"IsUpper", kv::platform::IsUpper, 1158, 0xE186D8C3},
    {"IsLower", kv::platform::IsLower, 1477, 0xE7F5531C},
    {"IsPunctuation", kv::platform::IsPunctuation, 660, 0x77932A51},
    {"IsControl", kv::platform::IsControl, 107, 0xB4164809},
};

TEST(CharacterClass, EveryUnitIsInTheClassesOfWindows)
{
    for (ClassCase const & row : classCases)
    {
        kv::test::Digest digest;
        unsigned count = 0;
        for (unsigned unit = 0; unit < 0x10000; unit++)
        {
            if (!row.accepts(static_cast<WCHAR>(unit)))
                continue;
            digest.Add16(unit);
            count++;
        }
        EXPECT_EQ(count, row.count) << row.name;
        EXPECT_EQ(digest.Value(), row.digest) << row.name;
    }
}

TEST(CharacterClass, SpacesAreTheBlanksOfAllScripts)
{
    for (unsigned const space : {0x09u, 0x0Au, 0x0Du, 0x20u, 0xA0u, 0x1680u, 0x2003u, 0x2028u, 0x202Fu, 0x3000u})
        EXPECT_TRUE(kv::platform::IsSpace(static_cast<WCHAR>(space))) << std::hex << space;
    for (unsigned const other : {0x00u, 0x08u, 0x0Eu, 0x1Fu, 0x7Fu, 0x85u, 0x180Eu, 0x200Bu, 0xFEFFu})
        EXPECT_FALSE(kv::platform::IsSpace(static_cast<WCHAR>(other))) << std::hex << other;
}

TEST(CharacterClass, HalfOfAPairIsInNoClass)
{
    for (ClassCase const & row : classCases)
    {
        for (unsigned unit = 0xD800; unit < 0xE000; unit++)
            ASSERT_FALSE(row.accepts(static_cast<WCHAR>(unit))) << row.name << ' ' << std::hex << unit;
    }
}

} // namespace
