// Writes platform/linux/text/BestFit.inc to standard output: what Windows makes of characters that a code page lacks.
// A program for Windows, run by hand when a page is added, because these choices are published nowhere but in the
// behaviour of the system itself:
//
//   x86_64-w64-mingw32-g++-posix -static -O1 -std=c++20 scripts/best-fit-table.cpp -o best-fit.exe
//   wine64 best-fit.exe > platform/linux/text/BestFit.inc

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <map>
#include <utility>
#include <vector>

namespace
{

// The order of platform/linux/text/CodePage.cpp: bit n of a set means the n-th page.
constexpr UINT pages[] = {437,   720,   737,   775,   850,   852,   855,   857,   860,   861,   862,   863,
                          864,   865,   866,   869,   874,   932,   936,   949,   950,   1250,  1251,  1252,
                          1253,  1254,  1255,  1256,  1257,  1258,  10000, 20127, 20866, 21866, 28591, 28592,
                          28593, 28594, 28595, 28596, 28597, 28598, 28599, 28603, 28605};
static_assert(std::size(pages) <= 64);

using Pair = std::pair<unsigned, unsigned>; // a character, and the one of the page that stands in for it

void Collect(std::map<Pair, std::uint64_t> & fits)
{
    for (std::size_t page = 0; page < std::size(pages); page++)
    {
        for (unsigned unit = 0; unit < 0x10000; unit++)
        {
            WCHAR const from = static_cast<WCHAR>(unit);
            WCHAR to = 0;
            char bytes[8];
            BOOL lacking = FALSE;
            BOOL inexact = FALSE;
            int const length = WideCharToMultiByte(pages[page], 0, &from, 1, bytes, sizeof(bytes), nullptr, &lacking);
            WideCharToMultiByte(pages[page], WC_NO_BEST_FIT_CHARS, &from, 1, nullptr, 0, nullptr, &inexact);
            if (lacking || !inexact)
                continue;
            MultiByteToWideChar(pages[page], 0, bytes, length, &to, 1);
            fits[{unit, to}] |= std::uint64_t(1) << page;
        }
    }
}

} // namespace

int main()
{
    _setmode(_fileno(stdout), _O_BINARY);
    std::map<Pair, std::uint64_t> fits;
    Collect(fits);

    std::vector<std::uint64_t> sets;
    std::map<std::uint64_t, std::size_t> setNumbers;
    for (auto const & [pair, set] : fits)
    {
        if (setNumbers.emplace(set, sets.size()).second)
            sets.push_back(set);
    }

    std::printf(
        "// Written by scripts/best-fit-table.cpp. Sets of pages, then {first character, first stand-in, how many "
        "in a row, set}.\n");
    std::printf("// clang-format off\n");
    std::printf("constexpr std::uint64_t bestFitSets[] = {");
    for (std::size_t i = 0; i < sets.size(); i++)
        std::printf("%s0x%llX,", i % 6 == 0 ? "\n    " : " ", static_cast<unsigned long long>(sets[i]));
    std::printf("\n};\nconstexpr BestFitRun bestFitRuns[] = {");
    int printed = 0;
    while (!fits.empty())
    {
        auto const [pair, set] = *fits.begin();
        unsigned count = 0;
        for (auto next = fits.begin(); next != fits.end() && next->second == set && count < 0xFF;
             next = fits.find({pair.first + count, pair.second + count}))
        {
            fits.erase(next);
            count++;
        }
        std::printf(
            "%s{0x%X,0x%X,%u,%zu},", printed++ % 5 == 0 ? "\n    " : " ", pair.first, pair.second, count,
            setNumbers[set]);
    }
    std::printf("\n};\n// clang-format on\n");
}
