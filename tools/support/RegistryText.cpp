#include <kvcore/tools/support/RegistryText.h>

#include <algorithm>
#include <climits>

#include <kvcore/platform/win32.h>

namespace kv::tools
{

namespace
{

constexpr std::size_t longestName = 16383;

bool IsLineEnd(WCHAR c)
{
    return c == '\r' || c == '\n';
}

/// The place of a character, for a message: which line it is in.
template <class Text>
std::size_t LineAt(Text const & text, std::size_t at)
{
    std::size_t line = 1;
    for (std::size_t i = 0; i < at; ++i)
    {
        bool const isEnd = text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'));
        line += isEnd ? 1u : 0u;
    }
    return line;
}

/// Text in a code page, if all of the bytes are some there.
bool FromCodePage(UINT codePage, std::string_view bytes, WString & text)
{
    text.clear();
    if (bytes.empty())
    {
        return true;
    }
    if (bytes.size() > INT_MAX)
    {
        return false;
    }
    int const size = static_cast<int>(bytes.size());
    int const length = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
    text.resize(static_cast<std::size_t>(std::max(length, 0)));
    return length > 0 &&
        MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes.data(), size, text.data(), length) == length;
}

/// Text in a code page, line by line, so that one that is none can be named.
WString Decoded(UINT codePage, std::string_view bytes)
{
    WString text;
    WString line;
    for (std::size_t at = 0; at < bytes.size();)
    {
        std::size_t const end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
        if (!FromCodePage(codePage, bytes.substr(at, end - at), line))
        {
            throw RegistryTextError(
                LineAt(bytes, at),
                codePage == CP_UTF8 ? "the line is not UTF-8" : "the line is no text in the system's code page");
        }
        text += line;
        at = end;
    }
    return text;
}

WString Decoded(std::string_view bytes)
{
    if (bytes.starts_with("\xFF\xFE"))
    {
        WString const text = RegistryText(std::string(bytes.substr(2)));
        if (bytes.size() % 2 != 0)
        {
            throw RegistryTextError(LineAt(text, text.size()), "the text ends in the middle of a character");
        }
        return text;
    }
    if (bytes.starts_with("\xFE\xFF"))
    {
        throw RegistryTextError(1, "the text is UTF-16 with its bytes swapped; the format has the low byte first");
    }
    if (bytes.starts_with("\xEF\xBB\xBF"))
    {
        return Decoded(CP_UTF8, bytes.substr(3));
    }
    return Decoded(CP_ACP, bytes);
}

int DigitOf(WCHAR c)
{
    return c >= '0' && c <= '9' ? c - '0'
        : c >= 'a' && c <= 'f'  ? c - 'a' + 10
        : c >= 'A' && c <= 'F'  ? c - 'A' + 10
                                : -1;
}

/// Reads a text from its front. Every function begins at the next character that is not read, and ends likewise.
class Reader
{
public:
    explicit Reader(WString content) : text(std::move(content)) {}

    std::vector<RegistryTextKey> Read();

private:
    void ReadHead();
    void ReadKey();
    void ReadValue();
    void ReadData(RegistryTextValue & item);
    void ReadNumber(RegistryValue & value);
    void ReadBytes(RegistryValue & value);
    WString ReadQuoted(char const * what);
    WCHAR ReadEscaped();
    DWORD ReadDigits(std::size_t most, char const * what);
    void SkipInBytes();
    void EndValue(std::size_t firstLine);

    [[noreturn]] void Fail(std::string const & reason) const
    {
        throw RegistryTextError(line, reason);
    }
    /// The next character, and NUL at the end, which a text does not have elsewhere.
    WCHAR Next() const
    {
        return at < text.size() ? text[at] : WCHAR(0);
    }
    bool AtLineEnd() const
    {
        return at == text.size() || IsLineEnd(text[at]);
    }
    bool Takes(WCHAR c)
    {
        bool const isNext = at < text.size() && text[at] == c;
        at += isNext ? 1 : 0;
        return isNext;
    }
    bool TakesWord(WString const & word);
    void SkipBlanks()
    {
        while (Next() == ' ' || Next() == '\t')
        {
            ++at;
        }
    }
    void SkipToLineEnd()
    {
        at = std::min(text.find_first_of(TEXT("\r\n"), at), text.size());
    }
    /// Goes to the next line from the end of this.
    void TakeLineEnd()
    {
        if (at < text.size())
        {
            bool const isPair = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
            at += isPair ? 2 : 1;
            ++line;
        }
    }

    WString text;
    std::size_t at = 0;
    std::size_t line = 1;
    bool hasBytesInCodePage = false;
    std::vector<RegistryTextKey> keys;
};

std::vector<RegistryTextKey> Reader::Read()
{
    if (std::size_t const place = text.find(WCHAR(0)); place != WString::npos)
    {
        throw RegistryTextError(LineAt(text, place), "there is a NUL character");
    }
    ReadHead();
    while (at < text.size())
    {
        SkipBlanks();
        if (Next() == ';')
        {
            SkipToLineEnd();
        }
        else if (Next() == '[')
        {
            ReadKey();
        }
        else if (Next() == '"' || Next() == '@')
        {
            ReadValue();
        }
        else if (!AtLineEnd())
        {
            Fail("the line is no [key], no \"name\"=value and no ; comment");
        }
        TakeLineEnd();
    }
    return std::move(keys);
}

void Reader::ReadHead()
{
    std::size_t const start = at;
    SkipToLineEnd();
    WString head = text.substr(start, at - start);
    head.erase(head.find_last_not_of(TEXT(" \t")) + 1);
    hasBytesInCodePage = head == TEXT("REGEDIT4");
    if (!hasBytesInCodePage && head != TEXT("Windows Registry Editor Version 5.00"))
    {
        Fail("the first line is neither \"Windows Registry Editor Version 5.00\" nor \"REGEDIT4\"");
    }
    TakeLineEnd();
}

/// The last bracket of the line ends the name, which may have others in it.
void Reader::ReadKey()
{
    std::size_t const start = at + 1;
    SkipToLineEnd();
    std::size_t const end = text.rfind(']', at);
    if (end == WString::npos || end < start)
    {
        Fail("the key has no closing bracket");
    }
    at = end + 1;
    SkipBlanks();
    if (Next() == ';')
    {
        SkipToLineEnd();
    }
    if (!AtLineEnd())
    {
        Fail("something stands behind the key's bracket");
    }
    bool const isDeleted = text[start] == '-';
    try
    {
        RegistryPath path(text.substr(start + (isDeleted ? 1 : 0), end - start - (isDeleted ? 1 : 0)));
        if (!path.machine.empty())
        {
            Fail("the key is one of another machine");
        }
        if (isDeleted && path.below.empty())
        {
            Fail("a root of the registry cannot be deleted");
        }
        keys.push_back({std::move(path), isDeleted, line, {}});
    }
    catch (BadRegistryPath const & bad)
    {
        Fail(bad.what());
    }
}

void Reader::ReadValue()
{
    if (keys.empty() || keys.back().isDeleted)
    {
        Fail(
            keys.empty() ? "the value stands before any key"
                         : "the value's key is deleted in line " + std::to_string(keys.back().line));
    }
    RegistryTextValue item;
    item.line = line;
    if (!Takes('@'))
    {
        item.value.name = ReadQuoted("name");
        if (item.value.name.size() > longestName)
        {
            Fail("the name of the value has more than 16383 characters");
        }
    }
    SkipBlanks();
    if (!Takes('='))
    {
        Fail("there is no = behind the value's name");
    }
    SkipBlanks();
    ReadData(item);
    EndValue(item.line);
    keys.back().values.push_back(std::move(item));
}

void Reader::ReadData(RegistryTextValue & item)
{
    if (Takes('-'))
    {
        item.isDeleted = true;
    }
    else if (Next() == '"')
    {
        item.value.type = REG_SZ;
        WString content = ReadQuoted("text");
        content += WCHAR(0);
        item.value.data = RegistryBytes(content);
    }
    else if (TakesWord(TEXT("dword:")))
    {
        ReadNumber(item.value);
    }
    else if (TakesWord(TEXT("hex")))
    {
        ReadBytes(item.value);
    }
    else
    {
        Fail(AtLineEnd() ? "there is no data behind the =" : "the data is no \"text\", no dword:, no hex: and no -");
    }
}

void Reader::ReadNumber(RegistryValue & value)
{
    value.type = REG_DWORD;
    SkipBlanks();
    DWORD const number = ReadDigits(8, "dword:");
    for (int shift = 0; shift < 32; shift += 8)
    {
        value.data += static_cast<char>(number >> shift & 0xFF);
    }
}

void Reader::ReadBytes(RegistryValue & value)
{
    value.type = REG_BINARY;
    if (Takes('('))
    {
        value.type = ReadDigits(8, "hex(");
        if (!Takes(')'))
        {
            Fail("the type of the bytes has no closing parenthesis");
        }
    }
    if (!Takes(':'))
    {
        Fail("there is no : behind hex");
    }
    // A comma at the very end is let pass, as other readers do.
    for (SkipInBytes(); !AtLineEnd() && Next() != ';'; SkipInBytes())
    {
        value.data += static_cast<char>(ReadDigits(2, "a byte"));
        SkipInBytes();
        if (!Takes(',') && !AtLineEnd() && Next() != ';')
        {
            Fail("there is no comma between two bytes");
        }
    }
    if (hasBytesInCodePage && IsRegistryText(value.type))
    {
        WString wide;
        if (!FromCodePage(CP_ACP, value.data, wide))
        {
            Fail("the bytes are no text in the system's code page");
        }
        value.data = RegistryBytes(wide);
    }
}

/// Skips blanks, and a backslash at the end of the line with what stands before the bytes in the next: blanks, and
/// lines of comment.
void Reader::SkipInBytes()
{
    SkipBlanks();
    while (Takes('\\'))
    {
        SkipBlanks();
        do
        {
            if (Next() == ';')
            {
                SkipToLineEnd();
            }
            if (!AtLineEnd())
            {
                Fail("a backslash among bytes is not at the end of the line");
            }
            TakeLineEnd();
            SkipBlanks();
        } while (Next() == ';');
        if (AtLineEnd())
        {
            Fail("the line before says that the bytes go on here, and there are none");
        }
    }
}

WString Reader::ReadQuoted(char const * what)
{
    std::size_t const firstLine = line;
    WString content;
    ++at;
    for (;;)
    {
        std::size_t const start = at;
        at = std::min(text.find_first_of(TEXT("\"\\\r\n"), at), text.size());
        content.append(text, start, at - start);
        if (at == text.size())
        {
            line = firstLine;
            Fail(std::string("the ") + what + " has no closing quote");
        }
        if (Takes('"'))
        {
            return content;
        }
        if (Takes('\\'))
        {
            content += ReadEscaped();
            continue;
        }
        // The platform's own editor writes line ends as they are.
        std::size_t const lineEnd = at;
        TakeLineEnd();
        content.append(text, lineEnd, at - lineEnd);
    }
}

WCHAR Reader::ReadEscaped()
{
    for (WCHAR const c : {WCHAR('\\'), WCHAR('"')})
    {
        if (Takes(c))
        {
            return c;
        }
    }
    if (Takes('n'))
    {
        return '\n';
    }
    if (Takes('r'))
    {
        return '\r';
    }
    Fail("a backslash in quotes stands before none of \\, \", n and r; a backslash itself is two of them");
}

DWORD Reader::ReadDigits(std::size_t most, char const * what)
{
    DWORD number = 0;
    std::size_t count = 0;
    for (; DigitOf(Next()) >= 0; ++at, ++count)
    {
        if (count == most)
        {
            Fail(std::string(what) + " has more than " + std::to_string(most) + " hexadecimal digits");
        }
        number = number << 4 | static_cast<DWORD>(DigitOf(Next()));
    }
    if (count == 0)
    {
        Fail(std::string(what) + " has no hexadecimal digits");
    }
    return number;
}

bool Reader::TakesWord(WString const & word)
{
    auto const isSame = [](WCHAR a, WCHAR b) { return a == b || (a >= 'A' && a <= 'Z' && (a | 0x20) == b); };
    bool const isNext = text.size() - at >= word.size() &&
        std::equal(word.begin(), word.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
                   [&](WCHAR a, WCHAR b) { return isSame(b, a); });
    at += isNext ? word.size() : 0;
    return isNext;
}

void Reader::EndValue(std::size_t firstLine)
{
    SkipBlanks();
    if (Next() == ';')
    {
        SkipToLineEnd();
    }
    if (!AtLineEnd())
    {
        Fail(
            "something stands behind the value's data" +
            (line == firstLine ? std::string() : "; the value begins in line " + std::to_string(firstLine)));
    }
}

} // namespace

std::vector<RegistryTextKey> ParseRegistryText(std::string_view bytes)
{
    return Reader(Decoded(bytes)).Read();
}

} // namespace kv::tools
