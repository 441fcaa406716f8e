#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <unicode/uchar.h>
#include <unicode/ucol.h>
#include <unicode/unorm2.h>
#include <unicode/uscript.h>
#include <unicode/utf16.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "Locales.h"

using namespace kv::platform;

// ICU's collators, moved to the order that Windows programs keep their lists in. The letters agree as they are; what
// is moved are the symbols, the hyphens and apostrophes, the ligatures, the fractions and the scripts.

namespace
{

#include "SymbolOrder.inc"

struct CollatorCloser
{
    void operator()(UCollator * collator) const
    {
        ucol_close(collator);
    }
};

using Collator = std::unique_ptr<UCollator, CollatorCloser>;

/// The order of the marks on letters. Ligatures are their letters; a letter with a bar has the mark of a bar, and the i
/// without a dot a mark that sorts before all others, where ICU has some of them as letters of their own, as it has the
/// marked Cyrillic ones; a fraction stands between the numbers around it.
constexpr char16_t letterRules[] =
    u"[suppressContractions [\u0400-\u04FF]]"
    u"&[before 2]\u0301<<\u0322"
    u"&\u0301<<\u0300<<\u0307<<\u0302<<\u0308<<\u030C<<\u0306<<\u0304<<\u0303<<\u030A<<\u0328<<\u0327<<\u030B"
    u"<<\u0335<<\u0338"
    u"&ae=æ&AE=Æ&oe=œ&OE=Œ&ss=ß&SS=ẞ&th=þ&TH=Þ&ij=ĳ&IJ=Ĳ"
    u"&dz=ǳ&Dz=ǲ&DZ=Ǳ&lj=ǉ&Lj=ǈ&LJ=Ǉ&nj=ǌ&Nj=ǋ&NJ=Ǌ"
    u"&ff=\uFB00&fi=\uFB01&fl=\uFB02&ffi=\uFB03&ffl=\uFB04&st=\uFB06"
    u"&ε=ϵ&σ<<<ς"
    u"&d\u0335=đ&D\u0335=Đ&h\u0335=ħ&H\u0335=Ħ&l\u0335=ł&L\u0335=Ł"
    u"&o\u0338=ø&O\u0338=Ø&d\u0338=ð&D\u0338=Ð&i\u0322=ı"
    u"&0<¼<½<¾";

/// The scripts in the order of Windows. What is not named follows behind.
constexpr int32_t scriptOrder[] = {
    USCRIPT_LATIN,
    USCRIPT_GREEK,
    USCRIPT_CYRILLIC,
    USCRIPT_ARMENIAN,
    USCRIPT_GEORGIAN,
    USCRIPT_GLAGOLITIC,
    USCRIPT_COPTIC,
    USCRIPT_HIRAGANA,
    USCRIPT_HEBREW,
    USCRIPT_ARABIC,
    USCRIPT_SYRIAC,
    USCRIPT_THAANA,
    USCRIPT_DEVANAGARI,
    USCRIPT_BENGALI,
    USCRIPT_GURMUKHI,
    USCRIPT_GUJARATI,
    USCRIPT_ORIYA,
    USCRIPT_TAMIL,
    USCRIPT_TELUGU,
    USCRIPT_KANNADA,
    USCRIPT_MALAYALAM,
    USCRIPT_SINHALA,
    USCRIPT_THAI,
    USCRIPT_MYANMAR,
    USCRIPT_MONGOLIAN,
    USCRIPT_TIBETAN,
    USCRIPT_LAO,
    USCRIPT_KHMER,
    USCRIPT_CANADIAN_ABORIGINAL,
    USCRIPT_CHEROKEE,
    USCRIPT_RUNIC,
    USCRIPT_ETHIOPIC,
    USCRIPT_YI,
    USCRIPT_BOPOMOFO,
    USCRIPT_HANGUL,
    USCRIPT_HAN};

/// The rules that make the root's order that of Windows. Only in a string sort do the hyphens and their kind take part.
std::u16string BaseRules(bool stringSort)
{
    std::u16string rules;
    if (stringSort)
        rules.append(u"&[last variable]").append(lastMarks).append(symbolOrder);
    else
    {
        for (std::u16string_view marks = lastMarks; !marks.empty(); marks.remove_prefix(1))
        {
            if (marks.front() != u'\\')
                continue;
            marks.remove_prefix(1);
            rules.append(u"&\u00AD=\\").push_back(marks.front()); // as good as not there
        }
        rules.append(u"&[last variable]").append(symbolOrder);
    }
    return rules.append(letterRules);
}

/// A locale's collator before any flag but the kind of sort. Falls back to what ICU has for the locale, should its
/// rules not go with ours.
Collator OpenLocale(std::string const & locale, bool stringSort)
{
    UErrorCode error = U_ZERO_ERROR;
    Collator plain(ucol_open(locale.c_str(), &error));
    if (U_FAILURE(error))
        return nullptr;
    int32_t length = 0;
    UChar const * const own = ucol_getRules(plain.get(), &length);
    std::u16string const rules = BaseRules(stringSort).append(own, static_cast<std::size_t>(length));
    Collator moved(
        ucol_openRules(rules.data(), static_cast<int32_t>(rules.size()), UCOL_DEFAULT, UCOL_DEFAULT, nullptr, &error));
    if (U_FAILURE(error))
        return plain;
    // A locale that moves its own script to the front keeps it there.
    int32_t const reordered = ucol_getReorderCodes(plain.get(), nullptr, 0, &error);
    error = U_ZERO_ERROR;
    if (reordered == 0)
        ucol_setReorderCodes(moved.get(), scriptOrder, static_cast<int32_t>(std::size(scriptOrder)), &error);
    return moved;
}

bool ApplyFlags(UCollator * collator, DWORD flags)
{
    UErrorCode error = U_ZERO_ERROR;
    bool const ignoreCase = (flags & (NORM_IGNORECASE | LINGUISTIC_IGNORECASE)) != 0;
    bool const ignoreMarks = (flags & (NORM_IGNORENONSPACE | LINGUISTIC_IGNOREDIACRITIC)) != 0;
    ucol_setAttribute(collator, UCOL_STRENGTH, ignoreMarks ? UCOL_PRIMARY : UCOL_TERTIARY, &error);
    ucol_setAttribute(collator, UCOL_CASE_LEVEL, ignoreMarks && !ignoreCase ? UCOL_ON : UCOL_OFF, &error);
    ucol_setAttribute(collator, UCOL_NORMALIZATION_MODE, UCOL_ON, &error);
    if ((flags & SORT_DIGITSASNUMBERS) != 0)
        ucol_setAttribute(collator, UCOL_NUMERIC_COLLATION, UCOL_ON, &error);
    if ((flags & NORM_IGNORESYMBOLS) != 0)
    {
        ucol_setMaxVariable(collator, UCOL_REORDER_CODE_CURRENCY, &error);
        ucol_setAttribute(collator, UCOL_ALTERNATE_HANDLING, UCOL_SHIFTED, &error);
    }
    return U_SUCCESS(error);
}

constexpr DWORD collatorFlags = NORM_IGNORECASE | NORM_IGNORENONSPACE | NORM_IGNORESYMBOLS | LINGUISTIC_IGNORECASE |
    LINGUISTIC_IGNOREDIACRITIC | SORT_DIGITSASNUMBERS | SORT_STRINGSORT;

/// The collators of a process, each opened at first use and kept to the end: comparing does not change one, so that all
/// threads share it. The user's locale is that of the first comparison.
class Collators
{
public:
    static UCollator const * Find(LCID locale, DWORD flags)
    {
        thread_local Key lastKey{};
        thread_local UCollator const * last = nullptr;
        Key const key{locale, flags & collatorFlags};
        if (last == nullptr || key != lastKey)
        {
            static auto & all = *new Collators;
            last = all.Open(key);
            lastKey = key;
        }
        return last;
    }

private:
    using Key = std::pair<LCID, DWORD>;

    UCollator const * Open(Key const & key)
    {
        std::lock_guard const lock(mutex);
        auto const found = ready.find(key);
        if (found != ready.end())
            return found->second.get();
        std::optional<std::string> const name =
            kv::platform::IcuLocale(key.first, kv::platform::LocaleCategory::Collation);
        if (!name)
            return nullptr;
        bool const stringSort = (key.second & SORT_STRINGSORT) != 0;
        auto & base = bases[{*name, stringSort}];
        if (base == nullptr)
            base = OpenLocale(*name, stringSort);
        UErrorCode error = U_ZERO_ERROR;
        Collator collator(base == nullptr ? nullptr : ucol_clone(base.get(), &error));
        if (collator == nullptr || !ApplyFlags(collator.get(), key.second))
            return nullptr;
        return ready.emplace(key, std::move(collator)).first->second.get();
    }

    std::mutex mutex;
    std::map<std::pair<std::string, bool>, Collator> bases;
    std::map<Key, Collator> ready;
};

/// Whether flags drop a difference that ICU has no level for, so that the texts have to be changed first.
bool NeedsFolding(DWORD flags)
{
    bool const ignoreMarks = (flags & (NORM_IGNORENONSPACE | LINGUISTIC_IGNOREDIACRITIC)) != 0;
    bool const ignoreCase = (flags & (NORM_IGNORECASE | LINGUISTIC_IGNORECASE)) != 0;
    return (ignoreCase && !ignoreMarks) || (flags & (NORM_IGNOREKANATYPE | NORM_IGNOREWIDTH)) != 0;
}

/// A text without the differences of case, of width and between the two Japanese syllabaries that flags drop. ICU's
/// levels would drop the others of them with any one.
class FoldedText
{
public:
    FoldedText(std::u16string_view text, DWORD flags)
    {
        constexpr std::size_t most = 2; // units that one can become
        char16_t * folded = shortText.data();
        if (text.size() > shortText.size() / most)
        {
            longText.resize(text.size() * most);
            folded = longText.data();
        }
        bool const ignoreCase = (flags & (NORM_IGNORECASE | LINGUISTIC_IGNORECASE)) != 0;
        std::size_t length = 0;
        for (char16_t c : text)
        {
            if (c >= 0x80)
                c = FoldForm(c, flags);
            if (ignoreCase)
            {
                // The dot of the capital I with one is a mark, which the small one does not have.
                bool const dotted = c == u'\u0130';
                c = dotted ? u'i' : LowerCase(c);
                folded[length++] = c;
                if (dotted)
                    folded[length++] = u'\u0307';
            }
            else
                folded[length++] = c;
        }
        view = {folded, length};
    }

    FoldedText(FoldedText const &) = delete;
    FoldedText & operator=(FoldedText const &) = delete;

    std::u16string_view View() const
    {
        return view;
    }

private:
    static char16_t FoldForm(char16_t c, DWORD flags)
    {
        if ((flags & NORM_IGNOREWIDTH) != 0 && c >= 0xFF00 && c <= 0xFFEF)
        {
            UErrorCode error = U_ZERO_ERROR;
            UNormalizer2 const * const forms = unorm2_getNFKCInstance(&error);
            UChar parts[4];
            if (unorm2_getRawDecomposition(forms, c, parts, 4, &error) == 1 && U_SUCCESS(error))
                c = parts[0];
        }
        bool const isKatakana = c >= 0x30A1 && c <= 0x30F6;
        return (flags & NORM_IGNOREKANATYPE) != 0 && isKatakana ? static_cast<char16_t>(c - 0x60) : c;
    }

    static char16_t LowerCase(char16_t c)
    {
        if (c < 0x80)
            return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c | 0x20) : c;
        if (c == u'ς') // small as it is, it is a form of the other
            return u'σ';
        UChar32 const lower = u_tolower(c);
        return lower < 0x10000 ? static_cast<char16_t>(lower) : c;
    }

    std::array<char16_t, 256> shortText;
    std::u16string longText;
    std::u16string_view view;
};

void AppendCodePoint(std::u16string & text, UChar32 c)
{
    if (c >= 0x10000)
        text += {U16_LEAD(c), U16_TRAIL(c)};
    else
        text += static_cast<char16_t>(c);
}

/// The marks that a text may have in a row before they are put in order here: more than any script writes.
constexpr std::size_t mostMarksInARow = 32;

bool HasManyMarksInARow(std::u16string_view text)
{
    std::size_t marks = 0;
    for (char16_t const c : text)
    {
        marks = c >= 0x300 && u_getCombiningClass(c) != 0 ? marks + 1 : 0;
        if (marks > mostMarksInARow)
            return true;
    }
    return false;
}

/// The canonical decomposition of a text. ICU puts the marks behind a letter in order one by one, each past all that it
/// belongs before, which takes the time of their product where there are thousands.
std::u16string Decomposed(std::u16string_view text)
{
    UErrorCode error = U_ZERO_ERROR;
    UNormalizer2 const * const forms = unorm2_getNFDInstance(&error);
    std::u16string result;
    result.reserve(text.size());
    std::vector<std::pair<std::uint8_t, UChar32>> marks;
    auto const putMarks = [&marks, &result]
    {
        std::stable_sort(marks.begin(), marks.end(), [](auto const & a, auto const & b) { return a.first < b.first; });
        for (auto const & mark : marks)
            AppendCodePoint(result, mark.second);
        marks.clear();
    };
    auto const put = [&](UChar32 c)
    {
        std::uint8_t const combiningClass = u_getCombiningClass(c);
        if (combiningClass != 0)
        {
            marks.emplace_back(combiningClass, c);
            return;
        }
        putMarks();
        AppendCodePoint(result, c);
    };
    for (std::size_t i = 0; i < text.size();)
    {
        UChar32 c = 0;
        U16_NEXT(text.data(), i, text.size(), c);
        UChar parts[32];
        UErrorCode failure = U_ZERO_ERROR;
        int32_t const length = unorm2_getDecomposition(forms, c, parts, 32, &failure);
        if (length < 0 || U_FAILURE(failure))
        {
            put(c);
            continue;
        }
        for (int32_t k = 0; k < length;)
        {
            UChar32 part = 0;
            U16_NEXT(parts, k, length, part);
            put(part);
        }
    }
    putMarks();
    return result;
}

/// The hyphens and their kind in a text: where they stand, by the characters before them that count, and which.
class LastMarks
{
public:
    explicit LastMarks(std::u16string_view text) : rest(text) {}

    /// False at the end. A mark that comes earlier is the greater one, and so is one that is there at all.
    bool Next(std::pair<int, int> & mark)
    {
        for (; !rest.empty(); rest.remove_prefix(1))
        {
            char16_t const c = rest.front();
            int const rank = RankOf(c);
            if (rank >= 0)
            {
                rest.remove_prefix(1);
                mark = {-before, rank};
                return true;
            }
            if (!IsWeightless(c))
                before++;
        }
        return false;
    }

private:
    static int RankOf(char16_t c)
    {
        if (c == u'\0' || (c > 0x7F && c < 0x58A) || (c >= 0x20 && c < 0x7F && c != u'\'' && c != u'-'))
            return -1;
        std::u16string_view const marks = lastMarks;
        for (std::size_t at = marks.find(c); at != std::u16string_view::npos; at = marks.find(c, at + 1))
        {
            if (marks[at - 1] == u'\\')
                return static_cast<int>(at);
        }
        return -1;
    }

    static bool IsWeightless(char16_t c)
    {
        return c == u'\0' || c == u'\u00AD' || u_charType(c) == U_NON_SPACING_MARK;
    }

    std::u16string_view rest;
    int before = 0;
};

UCollationResult CompareLastMarks(std::u16string_view left, std::u16string_view right)
{
    LastMarks leftMarks(left);
    LastMarks rightMarks(right);
    for (;;)
    {
        std::pair<int, int> a;
        std::pair<int, int> b;
        bool const leftHas = leftMarks.Next(a);
        bool const rightHas = rightMarks.Next(b);
        if (!leftHas || !rightHas)
            return leftHas == rightHas ? UCOL_EQUAL : leftHas ? UCOL_GREATER : UCOL_LESS;
        if (a != b)
            return a > b ? UCOL_GREATER : UCOL_LESS;
    }
}

int Fail(DWORD code)
{
    SetLastError(code);
    return 0;
}

} // namespace

int WINAPI CompareStringW(LCID locale, DWORD flags, LPCWCH left, int leftLength, LPCWCH right, int rightLength)
{
    CheckText(left, leftLength);
    CheckText(right, rightLength);
    constexpr DWORD known = collatorFlags | NORM_IGNOREKANATYPE | NORM_IGNOREWIDTH | NORM_LINGUISTIC_CASING |
        NORM_STOP_ON_NULL | LOCALE_USE_CP_ACP;
    if ((flags & ~known) != 0)
        return Fail(ERROR_INVALID_FLAGS);
    UCollator const * const collator = Collators::Find(locale, flags);
    if (collator == nullptr || left == nullptr || right == nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    auto const viewOf = [flags](LPCWCH text, int length)
    {
        if (length < 0)
            return std::u16string_view(text);
        std::u16string_view const all(text, static_cast<std::size_t>(length));
        return (flags & NORM_STOP_ON_NULL) != 0 ? all.substr(0, all.find(u'\0')) : all;
    };
    std::u16string_view const a = viewOf(left, leftLength);
    std::u16string_view const b = viewOf(right, rightLength);
    if (a.size() > 0x7FFFFFFF || b.size() > 0x7FFFFFFF)
        return Fail(ERROR_INVALID_PARAMETER);

    auto const collate = [collator](std::u16string_view x, std::u16string_view y) {
        return ucol_strcoll(
            collator, x.data(), static_cast<int32_t>(x.size()), y.data(), static_cast<int32_t>(y.size()));
    };
    auto const compare = [&collate](std::u16string_view x, std::u16string_view y)
    { return HasManyMarksInARow(x) || HasManyMarksInARow(y) ? collate(Decomposed(x), Decomposed(y)) : collate(x, y); };
    UCollationResult order =
        NeedsFolding(flags) ? compare(FoldedText(a, flags).View(), FoldedText(b, flags).View()) : compare(a, b);
    if (order == UCOL_EQUAL && (flags & (SORT_STRINGSORT | NORM_IGNORESYMBOLS)) == 0)
        order = CompareLastMarks(a, b);
    return order == UCOL_LESS ? CSTR_LESS_THAN : order == UCOL_EQUAL ? CSTR_EQUAL : CSTR_GREATER_THAN;
}
