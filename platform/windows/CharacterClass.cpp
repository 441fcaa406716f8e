#include <kvcore/platform/CharacterClass.h>

#include <wctype.h>

namespace kv::platform
{

bool detail::IsSpaceAboveAscii(WCHAR c)
{
    return iswspace(c) != 0;
}

bool IsDigit(WCHAR c)
{
    return iswdigit(c) != 0;
}

bool IsAlpha(WCHAR c)
{
    return iswalpha(c) != 0;
}

bool IsAlphaNumeric(WCHAR c)
{
    return iswalnum(c) != 0;
}

bool IsUpper(WCHAR c)
{
    return iswupper(c) != 0;
}

bool IsLower(WCHAR c)
{
    return iswlower(c) != 0;
}

bool IsPunctuation(WCHAR c)
{
    return iswpunct(c) != 0;
}

bool IsControl(WCHAR c)
{
    return iswcntrl(c) != 0;
}

} // namespace kv::platform
