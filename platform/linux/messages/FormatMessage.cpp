#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/memory.h>
#include <kvcore/platform/include/messages.h>
#include <kvcore/platform/linux/crt/PrintfEngine.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/messages/SystemMessages.h>

using namespace kv::platform;

namespace
{

using Text = std::basic_string<WCHAR>;

/// The longest form of an insert, between its exclamation marks.
constexpr std::size_t maxFormLength = 30;

/// The largest width and precision of an insert: a template of a few characters must not make gigabytes of blanks.
constexpr std::uint64_t maxInsertNumber = 1u << 20;

/// What cannot be printed; `code` becomes the last error.
struct Failure
{
    DWORD code;
};

/// The arguments of a message. Those of a C list come in order only, so all up to the one that is asked for are
/// fetched and kept, and none beyond it.
class InsertArguments
{
public:
    InsertArguments(std::va_list * arguments, bool isArray)
        : list(isArray ? nullptr : arguments), array(isArray ? reinterpret_cast<DWORD_PTR const *>(arguments) : nullptr)
    {
    }

    /// The argument with the number `index`, counted from 1.
    DWORD_PTR Get(unsigned index)
    {
        if ((list == nullptr && array == nullptr) || index > maxArguments)
        {
            throw Failure{ERROR_INVALID_PARAMETER};
        }
        if (array != nullptr)
        {
            last = std::max(last, index);
            return array[index - 1];
        }
        for (; last < index; ++last)
        {
            fetched[last] = va_arg(*list, DWORD_PTR);
        }
        return fetched[index - 1];
    }

    /// The one behind the last of all that were asked for.
    DWORD_PTR GetNext()
    {
        return Get(last + 1);
    }

    /// Kept: with a C list, the value of an insert with stars takes the number of the last star, so that the inserts
    /// that follow are counted as if there had been one star less.
    void ForgetStar()
    {
        last -= array == nullptr ? 1 : 0;
    }

private:
    /// An insert of the highest number, 99, may take two stars and its value.
    static constexpr unsigned maxArguments = 99 + 2;

    std::va_list * const list;
    DWORD_PTR const * const array;
    unsigned last = 0;
    DWORD_PTR fetched[maxArguments];
};

/// The text under construction, broken into lines of `width` elements. 0 is no limit, and 255 is none either but
/// turns the line ends of the template into blanks, as every width does.
class Lines
{
public:
    explicit Lines(DWORD width) : lineWidth(width) {}

    Text text;

    /// What stands together: an element, or a whole insert. It is not broken inside.
    void Put(WCHAR const * unit, std::size_t length)
    {
        text.append(unit, length);
        BreakLine();
    }
    void Put(WCHAR c)
    {
        Put(&c, 1);
    }

    /// A blank at which a line may be broken.
    void PutBlank()
    {
        lastBlank = text.size();
        text += u' ';
        BreakLine();
    }

    void PutLineEnd()
    {
        text += u"\r\n";
        StartLine();
    }

    /// A line end as it stands in the template.
    void PutTemplateLineEnd()
    {
        lineWidth == 0 ? PutLineEnd() : PutBlank();
    }

    void PutReturn()
    {
        text += u'\r';
        StartLine();
    }

    /// Kept: where lines have a width, a tab ends the line.
    void PutTab()
    {
        lineWidth == 0 ? Put(u'\t') : PutLineEnd();
    }

private:
    void StartLine()
    {
        lineStart = text.size();
        lastBlank = Text::npos;
    }

    /// Kept: a line is broken as soon as it is full, even if a blank or the end follows: at its last blank if it has
    /// one, the blanks before that going, too, else behind its last element.
    void BreakLine()
    {
        if (lineWidth == 0 || lineWidth == FORMAT_MESSAGE_MAX_WIDTH_MASK || text.size() - lineStart < lineWidth)
        {
            return;
        }
        if (lastBlank == Text::npos)
        {
            PutLineEnd();
            return;
        }
        std::size_t begin = lastBlank;
        while (begin > lineStart && text[begin - 1] == u' ')
        {
            --begin;
        }
        text.replace(begin, lastBlank + 1 - begin, u"\r\n");
        lineStart = begin + 2;
        lastBlank = Text::npos;
    }

    DWORD const lineWidth;
    std::size_t lineStart = 0;
    std::size_t lastBlank = Text::npos;
};

/// Copies flags or digits of an insert's form.
void CopyWhile(std::basic_string_view<WCHAR> & form, std::basic_string_view<WCHAR> set, Text & out)
{
    std::size_t const count = std::min(form.find_first_not_of(set), form.size());
    out.append(form.substr(0, count));
    form.remove_prefix(count);
}

/// The number that begins `text`, or what is above all that is allowed.
std::uint64_t NumberOf(std::basic_string_view<WCHAR> text)
{
    std::uint64_t value = 0;
    for (WCHAR const digit : text)
    {
        value = std::min<std::uint64_t>(value * 10 + (digit - u'0'), maxInsertNumber + 1);
    }
    return value;
}

/// The words that printf gets for one insert, and their format.
struct Insert
{
    Text format;
    DWORD_PTR words[3];
    std::size_t count = 0;
};

/// A width or a precision: digits, or a star and its argument.
void TakeNumber(
    std::basic_string_view<WCHAR> & form, unsigned index, InsertArguments & arguments, bool & starred, Insert & insert)
{
    std::uint64_t number = 0;
    if (!form.empty() && form[0] == u'*')
    {
        form.remove_prefix(1);
        insert.format += u'*';
        DWORD_PTR const word = starred ? arguments.GetNext() : arguments.Get(index);
        starred = true;
        insert.words[insert.count++] = word;
        std::int64_t const value = static_cast<std::int32_t>(word);
        number = static_cast<std::uint64_t>(value < 0 ? -value : value);
    }
    else
    {
        std::size_t const begin = insert.format.size();
        CopyWhile(form, u"0123456789", insert.format);
        number = NumberOf(std::basic_string_view<WCHAR>(insert.format).substr(begin));
    }
    if (number > maxInsertNumber)
    {
        throw Failure{ERROR_INVALID_PARAMETER};
    }
}

/// Prints the insert with the number `index` in the form `form`.
void PutInsert(Lines & lines, unsigned index, std::basic_string_view<WCHAR> form, InsertArguments & arguments)
{
    Insert insert;
    insert.format = u'%';
    bool starred = false;
    CopyWhile(form, u"-+ #0", insert.format);
    TakeNumber(form, index, arguments, starred, insert);
    if (!form.empty() && form[0] == u'.')
    {
        form.remove_prefix(1);
        insert.format += u'.';
        TakeNumber(form, index, arguments, starred, insert);
    }
    insert.format.append(form);
    if (starred)
    {
        arguments.ForgetStar();
    }
    insert.words[insert.count++] = starred ? arguments.GetNext() : arguments.Get(index);

    Text & text = lines.text;
    std::size_t const begin = text.size();
    std::uint64_t const length =
        kv::platform::PrintInsert(nullptr, 0, insert.format.c_str(), insert.words, insert.count);
    text.resize(begin + static_cast<std::size_t>(length));
    kv::platform::PrintInsert(
        text.data() + begin, static_cast<std::size_t>(length), insert.format.c_str(), insert.words, insert.count);
    lines.Put(u"", 0);
}

/// Reads "12" and, if one follows, "!form!" of an insert, and prints it. `source` stands on the first digit.
void ExpandInsert(WCHAR const *& source, Lines & lines, InsertArguments & arguments)
{
    unsigned index = static_cast<unsigned>(*source++ - u'0');
    if (*source >= u'0' && *source <= u'9')
    {
        index = index * 10 + static_cast<unsigned>(*source++ - u'0');
    }
    if (*source != u'!')
    {
        PutInsert(lines, index, u"s", arguments);
        return;
    }
    WCHAR const * const form = ++source;
    while (*source != u'!')
    {
        if (*source == 0 || static_cast<std::size_t>(source - form) == maxFormLength)
        {
            throw Failure{ERROR_INVALID_PARAMETER};
        }
        ++source;
    }
    PutInsert(lines, index, {form, static_cast<std::size_t>(source++ - form)}, arguments);
}

/// Expands what stands behind a percent sign. False if that ends the text.
bool ExpandEscape(WCHAR const *& source, Lines & lines, InsertArguments & arguments, bool ignoreInserts)
{
    switch (*source)
    {
    case 0:
        throw Failure{ERROR_INVALID_PARAMETER};
    case u'0':
        return false;
    case u'n':
        lines.PutLineEnd();
        break;
    case u'r':
        lines.PutReturn();
        break;
    case u't':
        lines.PutTab();
        break;
    default:
        if (ignoreInserts)
        {
            lines.Put(source - 1, 2);
        }
        else if (*source >= u'1' && *source <= u'9')
        {
            ExpandInsert(source, lines, arguments);
            return true;
        }
        else
        {
            lines.Put(*source);
        }
        break;
    }
    ++source;
    return true;
}

/// The message's text: `source` with its inserts, escapes and line ends.
Text Expand(WCHAR const * source, DWORD width, InsertArguments & arguments, bool ignoreInserts)
{
    Lines lines(width);
    while (*source != 0)
    {
        WCHAR const c = *source++;
        if (c == u'%')
        {
            if (!ExpandEscape(source, lines, arguments, ignoreInserts))
            {
                break;
            }
        }
        else if (c == u'\r' || c == u'\n')
        {
            source += c == u'\r' && *source == u'\n' ? 1 : 0;
            lines.PutTemplateLineEnd();
        }
        else if (c == u' ' && width != 0)
        {
            lines.PutBlank();
        }
        else
        {
            lines.Put(c);
        }
    }
    return std::move(lines.text);
}

/// The template itself.
Text FindSystemMessage(DWORD messageId, DWORD languageId)
{
    // The texts are in one language; it goes by the name of each default, of English, and of no language.
    DWORD const primary = languageId & 0x3FF;
    if (primary != 0x00 && primary != 0x09)
    {
        throw Failure{ERROR_RESOURCE_LANG_NOT_FOUND};
    }
    Text text = kv::platform::SystemMessage(messageId);
    if (text.empty())
    {
        throw Failure{ERROR_MR_MID_NOT_FOUND};
    }
    return text;
}

/// Puts the text where the caller wants it. Returns its length.
DWORD Deliver(Text const & text, bool allocate, LPWSTR buffer, DWORD capacity)
{
    if (text.size() >= 0xFFFFFFFF)
    {
        throw Failure{ERROR_NOT_ENOUGH_MEMORY};
    }
    if (!allocate && text.size() >= capacity)
    {
        // Kept: what fits is there, with its NUL, although the call fails.
        if (capacity > 0)
        {
            buffer[text.copy(buffer, capacity - 1)] = 0;
        }
        throw Failure{ERROR_INSUFFICIENT_BUFFER};
    }
    WCHAR * target = buffer;
    if (allocate && !text.empty())
    {
        std::size_t const elements = std::max<std::size_t>(text.size() + 1, capacity);
        target = static_cast<WCHAR *>(LocalAlloc(LMEM_FIXED, elements * sizeof(WCHAR)));
        if (target == nullptr)
        {
            throw Failure{ERROR_NOT_ENOUGH_MEMORY};
        }
        *reinterpret_cast<LPWSTR *>(buffer) = target;
    }
    if (!allocate || !text.empty())
    {
        target[text.copy(target, text.size())] = 0;
    }
    if (text.empty())
    {
        throw Failure{ERROR_NO_WORK_DONE};
    }
    return static_cast<DWORD>(text.size());
}

void CheckFormat(DWORD flags, LPCVOID source, LPWSTR buffer, DWORD capacity)
{
    CheckText((flags & FORMAT_MESSAGE_FROM_STRING) != 0 ? static_cast<WCHAR const *>(source) : nullptr);
    if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0)
    {
        CheckOutputs(reinterpret_cast<LPWSTR *>(buffer));
    }
    else
    {
        CheckBuffer(buffer, capacity);
    }
}

} // namespace

DWORD WINAPI FormatMessageW(
    DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD capacity,
    std::va_list * arguments)
{
    CheckFormat(flags, source, buffer, capacity);
    bool const fromString = (flags & FORMAT_MESSAGE_FROM_STRING) != 0;
    bool const allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    if (allocate && buffer != nullptr)
    {
        // First of all, because callers free what they find there, whatever the result is.
        *reinterpret_cast<LPWSTR *>(buffer) = nullptr;
    }
    if (buffer == nullptr || (fromString && source == nullptr) ||
        (flags & (FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_FROM_SYSTEM)) == 0)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    try
    {
        Text const found = fromString ? Text() : FindSystemMessage(messageId, languageId);
        InsertArguments inserts(arguments, (flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0);
        Text const text = Expand(
            fromString ? static_cast<WCHAR const *>(source) : found.c_str(), flags & FORMAT_MESSAGE_MAX_WIDTH_MASK,
            inserts, (flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0);
        return Deliver(text, allocate, buffer, capacity);
    }
    catch (Failure const & failure)
    {
        SetLastError(failure.code);
    }
    catch (std::bad_alloc const &)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    catch (std::length_error const &)
    {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return 0;
}
