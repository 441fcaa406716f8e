// Masks of the find functions on any names, beside a matcher that tries everything.

#include <vector>

#include <kvcore/platform/linux/find/NameMask.h>

#include "Fuzz.h"

namespace
{

WCHAR Folded(WCHAR c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<WCHAR>(c + 32) : c;
}

/// Whether each end of the mask matches each end of the name, from the back to the front.
bool ReferenceMatches(WString const & mask, WString const & name)
{
    if (mask.empty())
    {
        return true;
    }
    std::size_t const width = name.size() + 1;
    std::vector<char> matches((mask.size() + 1) * width, 0);
    auto const at = [&](std::size_t i, std::size_t j) -> char & { return matches[i * width + j]; };
    at(mask.size(), name.size()) = 1;
    for (std::size_t i = mask.size(); i-- > 0;)
    {
        WCHAR const c = mask[i];
        // What is left of a mask at the end of a name may be dots and stars.
        at(i, name.size()) = (c == '*' || c == '.') && at(i + 1, name.size());
        for (std::size_t j = name.size(); j-- > 0;)
        {
            bool const one = c == '?' || c == '>' || Folded(c) == Folded(name[j]);
            at(i, j) = c == '*' ? at(i + 1, j) || at(i, j + 1) : one && at(i + 1, j + 1);
        }
    }
    return at(0, 0) != 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    // ASCII alone: which letters beyond it are one in two cases is another matter, and of other tests.
    fuzz::Input input(data, std::min<std::size_t>(size, 512));
    std::size_t const split = input.Byte();
    WString text;
    for (char const c : input.Rest())
    {
        // Few letters, many wildcards: most masks should match something.
        constexpr char alphabet[] = "aAbB.c*?>x";
        text += WCHAR(alphabet[static_cast<unsigned char>(c) % (sizeof(alphabet) - 1)]);
    }
    WString const mask = text.substr(0, split);
    WString const name = text.substr(mask.size());
    kv::platform::NameMask const matcher(mask.data(), mask.size());
    bool const expected = ReferenceMatches(mask, name);
    fuzz::Check(matcher.Matches(name.data(), name.size()) == expected, "a mask matches otherwise");
    fuzz::Check(!matcher.IsAll() || expected, "a mask for everything does not match everything");
    return 0;
}
