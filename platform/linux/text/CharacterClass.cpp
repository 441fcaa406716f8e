#include <kvcore/platform/CharacterClass.h>

#include <unicode/uchar.h>

// The classes follow the general categories of Unicode. Where they do not, the exceptions are those of the Windows C
// run-time library, most of them older than Unicode's own second thoughts.

namespace kv::platform
{

namespace
{

bool IsIn(WCHAR c, std::uint32_t categories)
{
    return (U_MASK(u_charType(c)) & categories) != 0;
}

/// In the upper half of Latin-1 whatever is no plain letter counts as punctuation: superscript digits, ordinal signs,
/// the micro sign, the soft hyphen.
bool IsLatin1Sign(WCHAR c)
{
    return (c >= 0xA1 && c <= 0xBF) || c == 0xD7 || c == 0xF7;
}

} // namespace

bool detail::IsSpaceAboveAscii(WCHAR c)
{
    // Neither U+0085, which ends lines, nor U+180E, which has lost its width.
    return IsIn(c, U_GC_Z_MASK);
}

bool IsDigit(WCHAR c)
{
    return IsIn(c, U_GC_ND_MASK) || c == 0xB2 || c == 0xB3 || c == 0xB9;
}

bool IsAlpha(WCHAR c)
{
    return IsIn(c, U_GC_L_MASK | U_GC_NL_MASK) && !IsLatin1Sign(c);
}

bool IsAlphaNumeric(WCHAR c)
{
    return IsAlpha(c) || IsDigit(c);
}

bool IsUpper(WCHAR c)
{
    return IsIn(c, U_GC_LU_MASK | U_GC_LT_MASK);
}

bool IsLower(WCHAR c)
{
    return (IsIn(c, U_GC_LL_MASK | U_GC_LT_MASK) && !IsLatin1Sign(c)) || c == 0x2071 || c == 0x207F;
}

bool IsPunctuation(WCHAR c)
{
    if (c < 0x80)
        return c > ' ' && c < 0x7F && !IsAlphaNumeric(c);
    return IsIn(c, U_GC_P_MASK) || IsLatin1Sign(c);
}

bool IsControl(WCHAR c)
{
    return IsIn(c, U_GC_CC_MASK | U_GC_CF_MASK) && !IsLatin1Sign(c);
}

} // namespace kv::platform
