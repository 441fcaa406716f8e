#include <kvcore/config/XMLWriter.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <utility>

#ifdef __SSE2__
#    include <emmintrin.h>
#endif

#include <kvcore/core/AsciiBytes.h>

namespace
{

struct Reference
{
    char character;
    char const * text;
};

constexpr Reference references[] = {{'\t', "&#9;"}, {'\n', "&#10;"}, {'\r', "&#13;"}, {'"', "&quot;"},
                                    {'&', "&amp;"}, {'<', "&lt;"},   {'>', "&gt;"}};

enum : unsigned char
{
    ordinary = 0xFF,
    endOfText = 0xFE
};

// For each byte: the index of its reference, or that it stands for itself or ends the text.
constexpr std::array<unsigned char, 256> MakeByteKinds()
{
    std::array<unsigned char, 256> kinds{};
    for (unsigned char & kind : kinds)
    {
        kind = ordinary;
    }
    kinds[0] = endOfText;
    for (std::size_t i = 0; i < std::size(references); ++i)
    {
        kinds[static_cast<unsigned char>(references[i].character)] = static_cast<unsigned char>(i);
    }
    return kinds;
}

constexpr std::array<unsigned char, 256> byteKinds = MakeByteKinds();

unsigned char KindOf(char byte)
{
    return byteKinds[static_cast<unsigned char>(byte)];
}

#ifdef __SSE2__

/// Whether none of the 16 bytes at `bytes` is to be replaced or ends the text. Some control characters are taken for
/// such as well; the slow way tells them apart.
bool AreOrdinary(char const * bytes)
{
    __m128i const c = _mm_loadu_si128(reinterpret_cast<__m128i const *>(bytes));
    __m128i const controls = _mm_cmpeq_epi8(_mm_min_epu8(c, _mm_set1_epi8('\r')), c);
    // '"' and '&' differ in one bit, and so do '<' and '>'.
    __m128i const quotes = _mm_cmpeq_epi8(_mm_and_si128(c, _mm_set1_epi8(~('"' ^ '&'))), _mm_set1_epi8('"' & '&'));
    __m128i const brackets = _mm_cmpeq_epi8(_mm_and_si128(c, _mm_set1_epi8(~('<' ^ '>'))), _mm_set1_epi8('<' & '>'));
    return _mm_movemask_epi8(_mm_or_si128(controls, _mm_or_si128(quotes, brackets))) == 0;
}

#endif

/// The first byte from `run` on that does not stand for itself. The text's last byte, before `end`, is a NUL.
char const * EndOfRun(char const * run, [[maybe_unused]] char const * end)
{
    for (;;)
    {
#ifdef __SSE2__
        while (end - run >= 16 && AreOrdinary(run))
        {
            run += 16;
        }
#endif
        for (int left = 16; left != 0; --left, ++run)
        {
            if (KindOf(*run) != ordinary)
            {
                return run;
            }
        }
    }
}

/// Most texts are short and of ASCII alone, and need no memory to be converted.
constexpr std::size_t longestShort = 512;

/// Converts such a text, and appends a NUL. False for any other.
bool NarrowShort(String const & text, char * bytes)
{
    if (text.size() > longestShort)
    {
        return false;
    }
    bytes[text.size()] = '\0';
    return kv::detail::NarrowAscii(text.data(), text.size(), bytes) == text.size();
}

} // namespace

XMLWriter::XMLWriter(OutputStream & target, bool indent)
    : stream(target), indentState(indent ? -1 : 0), startTagOpen(false), startTagEmpty(false), textWritten(false)
{
    Write("<?xml version=\"1.0\"?>");
}

XMLWriter::~XMLWriter() = default;

void XMLWriter::CloseStartTag()
{
    if (startTagOpen)
    {
        if (startTagEmpty)
        {
            Write("/>");
            openElements.pop_back();
        }
        else
        {
            Write(">");
        }
    }
    startTagOpen = false;
    startTagEmpty = false;
    textWritten = false;
}

void XMLWriter::BreakLine()
{
    if (indentState >= 0)
    {
        return;
    }
    stream.Write("\n", 1);
    constexpr char blanks[] = "                ";
    constexpr std::size_t most = sizeof blanks - 1;
    for (std::size_t left = 2 * openElements.size(); left != 0;)
    {
        std::size_t const part = std::min(left, most);
        stream.Write(blanks, static_cast<int>(part));
        left -= part;
    }
}

void XMLWriter::Write(char const * text)
{
    Write(text, std::strlen(text));
}

// A stream takes up to 2^31 - 1 bytes at once, and the UTF-8 of one text may be longer.
void XMLWriter::Write(char const * bytes, std::size_t size)
{
    constexpr std::size_t most = std::size_t{1} << 30;
    for (; size > most; bytes += most, size -= most)
    {
        stream.Write(bytes, static_cast<int>(most));
    }
    stream.Write(bytes, static_cast<int>(size));
}

void XMLWriter::WriteEscaped(String const & text)
{
    char narrow[longestShort + 1];
    std::string encoded;
    char const * run = narrow;
    std::size_t size = text.size();
    if (!NarrowShort(text, narrow))
    {
        encoded = text.Utf8();
        run = encoded.c_str();
        size = encoded.size();
    }
    char const * const textEnd = run + size + 1;
    // The NUL behind the text ends it as well as one inside.
    for (;;)
    {
        char const * const end = EndOfRun(run, textEnd);
        if (end != run)
        {
            Write(run, static_cast<std::size_t>(end - run));
        }
        unsigned char const kind = KindOf(*end);
        if (kind == endOfText)
        {
            return;
        }
        Write(references[kind].text);
        run = end + 1;
    }
}

XMLWriter & XMLWriter::WriteStartElement(char const * name)
{
    return WriteStartElement(name, true);
}

XMLWriter & XMLWriter::WriteStartElement(String const & name)
{
    return WriteStartElement(name, true);
}

XMLWriter & XMLWriter::WriteStartElement(char const * name, bool indentContent)
{
    CloseStartTag();
    BreakLine();
    stream.Write("<", 1);
    Write(name);
    openElements.emplace_back(name);
    if (!indentContent && indentState < 0)
    {
        indentState = static_cast<int>(openElements.size());
    }
    startTagOpen = true;
    return *this;
}

XMLWriter & XMLWriter::WriteStartElement(String const & name, bool indentContent)
{
    return WriteStartElement(name.Utf8().c_str(), indentContent);
}

XMLWriter & XMLWriter::WriteEmptyElement(char const * name)
{
    WriteStartElement(name, true);
    startTagEmpty = true;
    return *this;
}

XMLWriter & XMLWriter::WriteEmptyElement(String const & name)
{
    return WriteEmptyElement(name.Utf8().c_str());
}

XMLWriter & XMLWriter::WriteEndElement()
{
    CloseStartTag();
    if (openElements.empty())
    {
        throw Exception{TEXT("No open element")};
    }
    std::string const name = std::move(openElements.back());
    openElements.pop_back();
    BreakLine();
    // After the line break: the end tag of the element that switched formatting off gets none.
    if (static_cast<int>(openElements.size()) < indentState)
    {
        indentState = -1;
    }
    stream.Write("</", 2);
    Write(name.data(), name.size());
    stream.Write(">", 1);
    return *this;
}

XMLWriter & XMLWriter::WriteAttribute(char const * name, String const & value)
{
    if (!startTagOpen)
    {
        throw Exception{TEXT("No open element")};
    }
    stream.Write(" ", 1);
    Write(name);
    stream.Write("=\"", 2);
    WriteEscaped(value);
    stream.Write("\"", 1);
    return *this;
}

XMLWriter & XMLWriter::WriteAttribute(String const & name, String const & value)
{
    return WriteAttribute(name.Utf8().c_str(), value);
}

XMLWriter & XMLWriter::WriteCharacters(String const & text)
{
    bool const joins = textWritten;
    CloseStartTag();
    if (openElements.empty())
    {
        throw Exception{TEXT("No open element")};
    }
    if (text.empty())
    {
        return *this;
    }
    if (!joins)
    {
        BreakLine();
    }
    WriteEscaped(text);
    textWritten = true;
    return *this;
}

XMLWriter & XMLWriter::WriteComment(String const & text)
{
    CloseStartTag();
    BreakLine();
    stream.Write("<!-- ", 5);
    WriteEscaped(text);
    stream.Write(" -->", 4);
    return *this;
}
