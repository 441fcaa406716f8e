// Writes platform/linux/text/SymbolOrder.inc to standard output: the order of punctuation and symbols, as a rule for
// ICU. A program for Windows, run by hand, because this order is published nowhere but in the behaviour of the system:
//
//   x86_64-w64-mingw32-g++-posix -static -O1 -std=c++20 scripts/symbol-order.cpp -o symbol-order.exe
//   wine64 symbol-order.exe > platform/linux/text/SymbolOrder.inc

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <string>
#include <tuple>
#include <vector>

namespace
{

struct Entry
{
    std::string weights;
    std::string marks;
    std::string rest;
    unsigned unit;
};

std::string KeyOf(WCHAR c, DWORD flags)
{
    char key[128];
    int const length =
        LCMapStringW(LOCALE_INVARIANT, LCMAP_SORTKEY | flags, &c, 1, reinterpret_cast<WCHAR *>(key), sizeof(key));
    return std::string(key, static_cast<std::size_t>(length));
}

Entry EntryOf(unsigned unit, DWORD flags)
{
    std::string const key = KeyOf(static_cast<WCHAR>(unit), flags);
    std::size_t const weightsEnd = key.find('\1');
    std::size_t const marksEnd = key.find('\1', weightsEnd + 1);
    return {key.substr(0, weightsEnd), key.substr(weightsEnd, marksEnd - weightsEnd), key.substr(marksEnd), unit};
}

bool IsWanted(unsigned unit)
{
    return unit < 0x100 || (unit >= 0x2000 && unit < 0x2300) || (unit >= 0x3000 && unit < 0x3040) || unit >= 0xFF00;
}

void Print(std::vector<Entry> const & entries, char const * name)
{
    std::printf("constexpr char16_t %s[] =", name);
    for (std::size_t i = 0; i < entries.size(); i++)
    {
        bool const first = i == 0 || entries[i].weights != entries[i - 1].weights;
        char const * const relation = first            ? "<"
            : entries[i].marks != entries[i - 1].marks ? "<<"
            : entries[i].rest != entries[i - 1].rest   ? "<<<"
                                                       : "=";
        // A backslash takes from a character whatever it means in a rule.
        char const * const open = i == 0 ? "\n    u\"" : i % 9 == 0 ? "\"\n    u\"" : "";
        std::printf("%s%s\\\\\\u%04X", open, relation, entries[i].unit);
    }
    std::printf("\";\n");
}

} // namespace

int main()
{
    _setmode(_fileno(stdout), _O_BINARY);
    std::vector<Entry> symbols;
    std::vector<Entry> marks; // the hyphens, apostrophes and controls that a word sort looks at last
    for (unsigned unit = 0; unit < 0x10000; unit++)
    {
        Entry const entry = EntryOf(unit, 0);
        Entry const asString = EntryOf(unit, SORT_STRINGSORT);
        if (entry.weights.empty() && !asString.weights.empty())
            marks.push_back(asString);
        else if (entry.weights.size() == 2 && entry.weights[0] >= 0x07 && entry.weights[0] <= 0x0C && IsWanted(unit))
            symbols.push_back(entry);
    }
    auto const less = [](Entry const & a, Entry const & b)
    { return std::tie(a.weights, a.marks, a.rest, a.unit) < std::tie(b.weights, b.marks, b.rest, b.unit); };
    std::sort(symbols.begin(), symbols.end(), less);
    std::sort(marks.begin(), marks.end(), less);
    std::printf("// Written by scripts/symbol-order.cpp.\n// clang-format off\n");
    Print(marks, "lastMarks");
    Print(symbols, "symbolOrder");
    std::printf("// clang-format on\n");
}
