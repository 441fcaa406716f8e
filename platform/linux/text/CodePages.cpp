#include <iterator>
#include <optional>
#include <string>

#include <unicode/unorm2.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

#include "CodePage.h"
#include "Utf7.h"
#include "Utf8.h"

using namespace kv::platform;

using kv::platform::CodePage;
using kv::platform::Conversion;
using kv::platform::ResolveCodePage;

namespace
{

int Fail(DWORD code)
{
    SetLastError(code);
    return 0;
}

/// A call's last step: the length, or the failure that the conversion ran into.
int Finish(Conversion const & conversion, bool refuseMalformed)
{
    if (!conversion.complete)
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    if (conversion.malformed && refuseMalformed)
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    if (conversion.length > 0x7FFFFFFF)
        return Fail(ERROR_INVALID_PARAMETER);
    return static_cast<int>(conversion.length);
}

template <typename Unit>
std::size_t LengthOf(Unit const * text, int given)
{
    return given > 0 ? static_cast<std::size_t>(given) : std::char_traits<Unit>::length(text) + 1;
}

/// Refuses what no page can work with. The same memory for both ends would be read after it has been written.
bool AreBuffersUsable(void const * source, int sourceLength, void const * target, int capacity)
{
    return source != nullptr && sourceLength != 0 && capacity >= 0 && (target != nullptr || capacity == 0) &&
        source != target;
}

/// A target of `Unit`, or with a capacity of 0 only the count of what it would take.
template <typename Unit>
class Writer
{
public:
    Writer(Unit * start, std::size_t size) : target(start), capacity(size) {}

    /// False, with nothing written, if there is no room.
    bool Write(Unit const * units, std::size_t count)
    {
        if (capacity != 0)
        {
            if (capacity - written < count)
                return false;
            for (std::size_t i = 0; i < count; i++)
                target[written + i] = units[i];
        }
        written += count;
        return true;
    }

    std::size_t Written() const
    {
        return written;
    }

private:
    Unit * const target;
    std::size_t const capacity;
    std::size_t written = 0;
};

UNormalizer2 const * CanonicalForms()
{
    UErrorCode error = U_ZERO_ERROR;
    return unorm2_getNFCInstance(&error);
}

bool IsHangulSyllable(UChar32 c)
{
    return c >= 0xAC00 && c <= 0xD7A3;
}

constexpr std::size_t mostParts = 4; // that a character of the basic plane comes apart into

/// Takes a character apart into its base and its marks, all the way down. Korean syllables stay.
std::size_t Decompose(WCHAR c, WCHAR (&parts)[mostParts])
{
    parts[0] = c;
    if (c < 0xC0 || IsHangulSyllable(c))
        return 1;
    UErrorCode error = U_ZERO_ERROR;
    int32_t const length = unorm2_getDecomposition(CanonicalForms(), c, parts, mostParts, &error);
    if (length > 0 && U_SUCCESS(error))
        return static_cast<std::size_t>(length);
    parts[0] = c;
    return 1;
}

/// The glyph that the pages of the old consoles show where texts have the control `c`.
WCHAR GlyphOf(UINT codePage, WCHAR c)
{
    static constexpr WCHAR glyphs[] = u" ☺☻♥♦♣♠•◘○◙♂♀♪♫☼►◄↕‼¶§▬↨↑↓→←∟↔▲▼";
    static_assert(std::size(glyphs) == 0x21);
    if (codePage > 874 || c == 0 || (c >= 0x20 && c != 0x7F))
        return c;
    if (c == 0x7F)
        return u'⌂';
    return codePage == 864 ? c : glyphs[c];
}

bool HasUndefined(CodePage const & page, unsigned char const * source, std::size_t length)
{
    for (std::size_t taken; length != 0; source += taken, length -= taken)
    {
        taken = length;
        WCHAR const c = page.Decode(source, taken);
        if (page.IsUndefined(source, taken, c))
            return true;
    }
    return false;
}

/// One unit a byte and no flag to heed: what nearly all conversions are.
Conversion DecodePlain(
    CodePage const & page, unsigned char const * source, std::size_t length, WCHAR * target, std::size_t capacity)
{
    if (capacity == 0)
        return {length, true, false};
    std::size_t const count = length < capacity ? length : capacity;
    for (std::size_t i = 0; i < count; i++)
        target[i] = page.DecodeSingle(source[i]);
    return {count, count == length, false};
}

Conversion DecodePage(
    CodePage const & page, UINT codePage, DWORD flags, unsigned char const * source, std::size_t length, WCHAR * target,
    std::size_t capacity)
{
    bool const composite = (flags & MB_COMPOSITE) != 0;
    bool const glyphs = (flags & MB_USEGLYPHCHARS) != 0;
    if (!page.IsDoubleByte() && !composite && !glyphs)
        return DecodePlain(page, source, length, target, capacity);
    Writer<WCHAR> writer(target, capacity);
    for (std::size_t taken; length != 0; source += taken, length -= taken)
    {
        taken = length;
        WCHAR const c = page.Decode(source, taken);
        WCHAR parts[mostParts] = {glyphs ? GlyphOf(codePage, c) : c};
        if (!writer.Write(parts, composite ? Decompose(parts[0], parts) : 1))
            return {writer.Written(), false, false};
    }
    return {writer.Written(), true, false};
}

/// The bytes of one character, or those that stand for what a page lacks.
struct Code
{
    char bytes[2];
    std::size_t length;
};

Code CodeOf(unsigned value)
{
    if (value > 0xFF)
        return {{static_cast<char>(value >> 8), static_cast<char>(value)}, 2};
    return {{static_cast<char>(value), 0}, 1};
}

/// Looks characters up in a page, in the way that a call's flags ask for.
class PageEncoder
{
public:
    PageEncoder(CodePage const & codePage, DWORD callFlags, char const * defaultChar)
        : page(codePage), flags(callFlags), fallback{{'?', 0}, 1}
    {
        if (defaultChar == nullptr)
            return;
        fallback.bytes[0] = defaultChar[0];
        if (page.IsLead(static_cast<unsigned char>(defaultChar[0])) && defaultChar[1] != '\0')
            fallback = {{defaultChar[0], defaultChar[1]}, 2};
    }

    /// The code of the character that `source`, of `length`, starts with, which is moved to the units taken.
    Code Next(WCHAR const * source, std::size_t & length, bool & usedFallback) const
    {
        std::size_t const left = length;
        length = 1;
        std::optional<unsigned> value = Find(source[0]);
        if ((flags & WC_COMPOSITECHECK) != 0 && left > 1 && source[1] >= 0x300)
        {
            UChar32 const composed = unorm2_composePair(CanonicalForms(), source[0], source[1]);
            if (composed > 0 && composed < 0x10000 && !IsHangulSyllable(composed))
                value = FindComposed(static_cast<WCHAR>(composed), value, length);
        }
        usedFallback = usedFallback || !value;
        return value ? CodeOf(*value) : fallback;
    }

private:
    std::optional<unsigned> Find(WCHAR c) const
    {
        unsigned const value = page.Encode(c);
        bool const found = (value != 0 || c == 0) && ((flags & WC_NO_BEST_FIT_CHARS) == 0 || page.IsExact(c, value));
        return found ? std::optional(value) : std::nullopt;
    }

    /// A base and its mark, of which the page may have the one character that they make. If it has not, the flags
    /// choose: the default character for both, the base without its mark, or one after the other.
    std::optional<unsigned> FindComposed(WCHAR composed, std::optional<unsigned> base, std::size_t & length) const
    {
        std::optional<unsigned> const whole = Find(composed);
        if (!whole && (flags & (WC_DEFAULTCHAR | WC_DISCARDNS)) == 0)
            return base;
        length = 2;
        return whole || (flags & WC_DEFAULTCHAR) != 0 ? whole : base;
    }

    CodePage const & page;
    DWORD const flags;
    Code fallback;
};

/// Malformed is what had to be the default character.
Conversion
EncodePage(PageEncoder const & encoder, WCHAR const * source, std::size_t length, char * target, std::size_t capacity)
{
    Writer<char> writer(target, capacity);
    bool usedFallback = false;
    for (std::size_t taken; length != 0; source += taken, length -= taken)
    {
        taken = length;
        Code const code = encoder.Next(source, taken, usedFallback);
        if (!writer.Write(code.bytes, code.length))
            return {writer.Written(), false, usedFallback};
    }
    return {writer.Written(), true, usedFallback};
}

} // namespace

/// The pages that stand for another one. Narrow texts are UTF-8 on this system.
UINT kv::platform::ResolveCodePage(UINT codePage)
{
    switch (codePage)
    {
    case CP_ACP:
    case CP_OEMCP:
    case CP_THREAD_ACP:
        return CP_UTF8;
    case CP_MACCP:
        return 10000;
    default:
        return codePage;
    }
}

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH source, int sourceLength, LPWSTR target, int capacity)
{
    CheckText(source, sourceLength);
    CheckBuffer(target, capacity > 0 ? 1 : 0);
    if (!AreBuffersUsable(source, sourceLength, target, capacity))
        return Fail(ERROR_INVALID_PARAMETER);
    codePage = ResolveCodePage(codePage);
    std::size_t const length = LengthOf(source, sourceLength);
    std::size_t const room = static_cast<std::size_t>(capacity);
    bool const refuse = (flags & MB_ERR_INVALID_CHARS) != 0;
    if (codePage == CP_UTF7)
    {
        if (flags != 0)
            return Fail(ERROR_INVALID_FLAGS);
        return Finish(kv::platform::DecodeUtf7(source, length, target, room), false);
    }
    CodePage const * const page = codePage == CP_UTF8 ? nullptr : CodePage::Find(codePage);
    if (codePage != CP_UTF8 && page == nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    if ((flags & ~(MB_PRECOMPOSED | MB_COMPOSITE | MB_USEGLYPHCHARS | MB_ERR_INVALID_CHARS)) != 0)
        return Fail(ERROR_INVALID_FLAGS);
    if (page == nullptr)
    {
        Conversion const conversion = room == 0 ? kv::platform::CountUtf8AsUtf16(source, length)
                                                : kv::platform::DecodeUtf8(source, length, target, room);
        return Finish(conversion, refuse);
    }
    unsigned char const * const bytes = reinterpret_cast<unsigned char const *>(source);
    if (refuse && HasUndefined(*page, bytes, length))
        return Fail(ERROR_NO_UNICODE_TRANSLATION);
    return Finish(DecodePage(*page, codePage, flags, bytes, length, target, room), false);
}

int WINAPI WideCharToMultiByte(
    UINT codePage, DWORD flags, LPCWCH source, int sourceLength, LPSTR target, int capacity, LPCCH defaultChar,
    LPBOOL usedDefaultChar)
{
    CheckText(source, sourceLength);
    CheckBuffer(target, capacity > 0 ? 1 : 0);
    CheckInputs(defaultChar);
    CheckOutputs(usedDefaultChar);
    if (!AreBuffersUsable(source, sourceLength, target, capacity))
        return Fail(ERROR_INVALID_PARAMETER);
    codePage = ResolveCodePage(codePage);
    std::size_t const length = LengthOf(source, sourceLength);
    std::size_t const room = static_cast<std::size_t>(capacity);
    if (codePage == CP_UTF7)
    {
        if (defaultChar != nullptr || usedDefaultChar != nullptr)
            return Fail(ERROR_INVALID_PARAMETER);
        if (flags != 0)
            return Fail(ERROR_INVALID_FLAGS);
        return Finish(kv::platform::EncodeUtf7(source, length, target, room), false);
    }
    CodePage const * const page = codePage == CP_UTF8 ? nullptr : CodePage::Find(codePage);
    if (codePage != CP_UTF8 && page == nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    DWORD const known =
        WC_DISCARDNS | WC_SEPCHARS | WC_DEFAULTCHAR | WC_ERR_INVALID_CHARS | WC_COMPOSITECHECK | WC_NO_BEST_FIT_CHARS;
    if ((flags & ~known) != 0)
        return Fail(ERROR_INVALID_FLAGS);
    // Kept: UTF-8 takes a default character and does not use it, since U+FFFD stands for half a pair; that it did is
    // reported all the same. A program that converts to the system's page need not know that it is UTF-8.
    Conversion const conversion = page != nullptr
        ? EncodePage(PageEncoder(*page, flags, defaultChar), source, length, target, room)
        : room == 0 ? kv::platform::CountUtf16AsUtf8(source, length)
                    : kv::platform::EncodeUtf8(source, length, target, room);
    bool const refused = page == nullptr && (flags & WC_ERR_INVALID_CHARS) != 0;
    if (usedDefaultChar != nullptr)
        *usedDefaultChar = conversion.malformed && conversion.complete && !refused;
    return Finish(conversion, refused);
}

UINT WINAPI GetACP()
{
    return CP_UTF8;
}

UINT WINAPI GetOEMCP()
{
    return CP_UTF8;
}

BOOL WINAPI IsValidCodePage(UINT codePage)
{
    return codePage == CP_UTF8 || codePage == CP_UTF7 || CodePage::Exists(codePage);
}
