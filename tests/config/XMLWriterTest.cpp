#include <kvcore/config/XMLWriter.h>

#include <algorithm>
#include <functional>

#include <kvcore/streams/MemoryStreams.h>

#include <support/StreamFailure.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

constexpr char declaration[] = "<?xml version=\"1.0\"?>";

using Calls = std::function<void(XMLWriter &)>;

/// What `calls` write behind the declaration, with line ends shown as bars.
std::string Written(bool indent, Calls const & calls)
{
    MemoryOutputStream target;
    XMLWriter writer(target, indent);
    calls(writer);
    std::string text = target.GetContent();
    EXPECT_EQ(text.substr(0, sizeof declaration - 1), declaration);
    text.erase(0, sizeof declaration - 1);
    for (char & byte : text)
    {
        byte = byte == '\n' ? '|' : byte;
    }
    return text;
}

void ExpectNoOpenElement(Calls const & calls)
{
    MemoryOutputStream target;
    XMLWriter writer(target, true);
    try
    {
        calls(writer);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (XMLWriter::Exception const & failure)
    {
        EXPECT_EQ(failure.message, TEXT("No open element"));
    }
}

std::string EscapedText(String const & text)
{
    return Written(false, [&](XMLWriter & writer) { writer.WriteStartElement("a").WriteCharacters(text); });
}

} // namespace

TEST(XMLWriter, TheDeclarationStandsAloneInTheFirstBytes)
{
    EXPECT_EQ(Written(true, [](XMLWriter &) {}), "");
    EXPECT_EQ(Written(false, [](XMLWriter &) {}), "");
}

TEST(XMLWriter, FormatsUntilAnElementSwitchesItOff)
{
    Calls const calls = [](XMLWriter & writer)
    {
        writer.WriteStartElement("a");
        writer.WriteAttribute("x", TEXT("1\"2"));
        writer.WriteEmptyElement("b");
        writer.WriteStartElement("c", false);
        writer.WriteCharacters(TEXT(" t "));
        writer.WriteEndElement();
        writer.WriteEndElement();
    };
    EXPECT_EQ(Written(true, calls), "|<a x=\"1&quot;2\">|  <b/>|  <c> t </c>|</a>");
    EXPECT_EQ(Written(false, calls), "<a x=\"1&quot;2\"><b/><c> t </c></a>");
}

TEST(XMLWriter, FormattedCallsAreLaidOutInLines)
{
    struct Case
    {
        char const * expected;
        Calls calls;
    };
    Case const cases[] = {
        {"|<a>|  t|</a>", [](XMLWriter & w) { w.WriteStartElement("a").WriteCharacters(TEXT("t")).WriteEndElement(); }},
        {"|<a>|</a>", [](XMLWriter & w) { w.WriteStartElement("a").WriteEndElement(); }},
        {"|<a>|  tu|</a>",
         [](XMLWriter & w)
         { w.WriteStartElement("a").WriteCharacters(TEXT("t")).WriteCharacters(TEXT("u")).WriteEndElement(); }},
        {"|<a>|  t|  u",
         [](XMLWriter & w)
         { w.WriteStartElement("a").WriteCharacters(TEXT("t")).WriteCharacters(TEXT("")).WriteCharacters(TEXT("u")); }},
        {"|<a>|  t|  <!-- c -->|  u",
         [](XMLWriter & w)
         { w.WriteStartElement("a").WriteCharacters(TEXT("t")).WriteComment(TEXT("c")).WriteCharacters(TEXT("u")); }},
        {"|<!-- c -->|<a/>|<!-- d -->",
         [](XMLWriter & w) { w.WriteComment(TEXT("c")).WriteEmptyElement("a").WriteComment(TEXT("d")); }},
        // Switched off inside what is switched off: the outer element rules.
        {"|<a><b></b></a>|<c>|</c>",
         [](XMLWriter & w)
         {
             w.WriteStartElement("a", false).WriteStartElement("b", false).WriteEndElement().WriteEndElement();
             w.WriteStartElement("c").WriteEndElement();
         }},
        {"|<a>|  <b/>|</a>", [](XMLWriter & w) { w.WriteStartElement("a").WriteEmptyElement("b").WriteEndElement(); }},
        // The last start tag waits for a call that closes it.
        {"|<a>|  <b x=\"1\"",
         [](XMLWriter & w) { w.WriteStartElement("a").WriteEmptyElement("b").WriteAttribute("x", TEXT("1")); }},
    };
    for (Case const & each : cases)
    {
        EXPECT_EQ(Written(true, each.calls), each.expected);
    }
}

TEST(XMLWriter, DeepIndentIsTwoBlanksForEachElement)
{
    Calls const calls = [](XMLWriter & writer)
    {
        for (int i = 0; i < 20; ++i)
        {
            writer.WriteStartElement("e");
        }
    };
    std::string const written = Written(true, calls);
    EXPECT_EQ(written.substr(written.rfind('|')), "|" + std::string(38, ' ') + "<e");
}

TEST(XMLWriter, CallsWithoutAnOpenElementThrow)
{
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteEndElement(); });
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteStartElement("a").WriteEndElement().WriteEndElement(); });
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteEmptyElement("a").WriteEndElement(); });
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteCharacters(TEXT("t")); });
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteCharacters({}); });
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteEmptyElement("a").WriteCharacters({}); });
}

TEST(XMLWriter, AttributesNeedAnOpenStartTag)
{
    ExpectNoOpenElement([](XMLWriter & writer) { writer.WriteAttribute("x", TEXT("1")); });
    ExpectNoOpenElement([](XMLWriter & writer)
                        { writer.WriteStartElement("a").WriteCharacters(TEXT("t")).WriteAttribute("x", TEXT("1")); });
    ExpectNoOpenElement([](XMLWriter & writer)
                        { writer.WriteStartElement("a").WriteCharacters({}).WriteAttribute("x", TEXT("1")); });
    ExpectNoOpenElement([](XMLWriter & writer)
                        { writer.WriteStartElement("a").WriteComment(TEXT("c")).WriteAttribute("x", TEXT("1")); });
    ExpectNoOpenElement([](XMLWriter & writer)
                        { writer.WriteStartElement("a").WriteEndElement().WriteAttribute("x", TEXT("1")); });
}

TEST(XMLWriter, AFailedCallLeavesTheWriterUsable)
{
    std::string const written = Written(
        false,
        [](XMLWriter & writer)
        {
            writer.WriteEmptyElement("a");
            EXPECT_THROW(writer.WriteEndElement(), XMLWriter::Exception);
            EXPECT_THROW(writer.WriteAttribute("x", TEXT("1")), XMLWriter::Exception);
            writer.WriteComment(TEXT("c"));
        });
    EXPECT_EQ(written, "<a/><!-- c -->");
}

TEST(XMLWriter, SevenCharactersAreEscapedEverywhere)
{
    String const text = TEXT("\t\n\r\"&<>'");
    std::string const escaped = "&#9;&#10;&#13;&quot;&amp;&lt;&gt;'";
    EXPECT_EQ(
        Written(
            false,
            [&](XMLWriter & writer)
            { writer.WriteStartElement("a").WriteAttribute("x", text).WriteCharacters(text).WriteComment(text); }),
        "<a x=\"" + escaped + "\">" + escaped + "<!-- " + escaped + " -->");
}

TEST(XMLWriter, EscapesAtEveryPlaceOfATextOfAnyLength)
{
    struct
    {
        WCHAR character;
        char const * written;
    } const cases[] = {
        {'\t', "&#9;"},
        {'\n', "&#10;"},
        {'\r', "&#13;"},
        {'"', "&quot;"},
        {'&', "&amp;"},
        {'<', "&lt;"},
        {'>', "&gt;"},
        {0x0B, "\x0B"},
        {0x01, "\x01"},
        {'!', "!"},
        {'$', "$"},
        {'\'', "'"},
        {'=', "="},
        {';', ";"},
        {0x7F, "\x7F"},
        {0x80, "\xC2\x80"},
        {0x2022, "\xE2\x80\xA2"},
        {0xFF22, "\xEF\xBC\xA2"},
        {0, nullptr}};
    for (std::size_t const length : {1u, 15u, 16u, 17u, 33u, 50u, 511u, 512u, 513u, 530u})
    {
        for (std::size_t place = 0; place<length; place += length> 60 && place > 40 && place + 40 < length ? 23 : 1)
        {
            for (auto const & one : cases)
            {
                WString text(length, 'x');
                text[place] = one.character;
                std::string expected = "<a>" + std::string(place, 'x');
                if (one.written != nullptr)
                {
                    expected += one.written + std::string(length - place - 1, 'x');
                }
                std::string shown = EscapedText(String(text));
                ASSERT_EQ(shown, expected) << length << ' ' << place << ' ' << unsigned(one.character);
            }
        }
    }
}

TEST(XMLWriter, OtherCharactersPassAsUtf8)
{
    EXPECT_EQ(EscapedText(TEXT("\u00E4\u20AC\U0001F600")), "<a>\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(EscapedText(TEXT("\x01\x1F\x7F")), "<a>\x01\x1F\x7F");
    EXPECT_EQ(EscapedText(TEXT("--")), "<a>--");
}

TEST(XMLWriter, ANulEndsTheText)
{
    String const text(TEXT("ab\0cd"), 5);
    EXPECT_EQ(EscapedText(text), "<a>ab");
    EXPECT_EQ(
        Written(false, [&](XMLWriter & w) { w.WriteStartElement(text).WriteAttribute(text, text).WriteComment(text); }),
        "<ab ab=\"ab\"><!-- ab -->");
}

TEST(XMLWriter, EmptyValuesAndCommentsAreWritten)
{
    EXPECT_EQ(
        Written(false, [](XMLWriter & w) { w.WriteStartElement("a").WriteAttribute("x", {}).WriteComment({}); }),
        "<a x=\"\"><!--  -->");
}

TEST(XMLWriter, WideAndNarrowNamesAreTheSame)
{
    Calls const narrow = [](XMLWriter & w)
    {
        w.WriteStartElement("\xC3\xA4").WriteAttribute("\xC3\xB6", TEXT("1")).WriteStartElement("b", false);
        w.WriteEmptyElement("\xC3\xBC").WriteEndElement().WriteEndElement();
    };
    Calls const wide = [](XMLWriter & w)
    {
        w.WriteStartElement(TEXT("\u00E4")).WriteAttribute(String(TEXT("\u00F6")), TEXT("1"));
        w.WriteStartElement(TEXT("b"), false).WriteEmptyElement(TEXT("\u00FC")).WriteEndElement().WriteEndElement();
    };
    EXPECT_EQ(Written(true, narrow), "|<\xC3\xA4 \xC3\xB6=\"1\">|  <b><\xC3\xBC/></b>|</\xC3\xA4>");
    EXPECT_EQ(Written(true, wide), Written(true, narrow));
}

TEST(XMLWriter, NamesAreNeitherCheckedNorEscaped)
{
    EXPECT_EQ(
        Written(
            false,
            [](XMLWriter & w)
            { w.WriteStartElement("a b<").WriteAttribute("x", TEXT("1")).WriteAttribute("x", TEXT("2")); }),
        "<a b< x=\"1\" x=\"2\"");
}

TEST(XMLWriter, TheDestructorWritesNothing)
{
    MemoryOutputStream target;
    {
        XMLWriter writer(target, true);
        writer.WriteStartElement("a").WriteStartElement("b");
    }
    EXPECT_EQ(target.GetContent(), std::string(declaration) + "\n<a>\n  <b");
}

TEST(XMLWriter, EveryCallReachesTheStreamAtOnce)
{
    MemoryOutputStream target;
    XMLWriter writer(target, false);
    EXPECT_EQ(target.GetContent(), declaration);
    writer.WriteStartElement("a");
    EXPECT_EQ(target.GetContent(), std::string(declaration) + "<a");
    writer.WriteCharacters(TEXT("t"));
    EXPECT_EQ(target.GetContent(), std::string(declaration) + "<a>t");
}

TEST(XMLWriter, BlanksGoOutInPiecesOfSixteenAndRunsOfTextWhole)
{
    RecordingOutputStream target;
    XMLWriter writer(target, true);
    auto const countOf = [&target](std::string const & piece)
    { return std::count(target.writes.begin(), target.writes.end(), piece); };
    for (int i = 0; i < 17; ++i)
    {
        writer.WriteStartElement("e");
    }
    target.writes.clear();
    writer.WriteStartElement("last"); // behind 34 blanks
    EXPECT_EQ(countOf(std::string(16, ' ')), 2);
    EXPECT_EQ(countOf("  "), 1);
    target.writes.clear();
    writer.WriteAttribute("x", TEXT("one run<another")).WriteCharacters(TEXT("third&fourth"));
    for (char const * const piece : {"one run", "another", "third", "fourth"})
    {
        EXPECT_EQ(countOf(piece), 1) << piece;
    }
}

TEST(XMLWriter, FailuresOfTheStreamPassThrough)
{
    Calls const calls = [](XMLWriter & writer)
    {
        writer.WriteStartElement("a").WriteAttribute("x", TEXT("<")).WriteCharacters(TEXT("t")).WriteComment({});
        writer.WriteEndElement();
    };
    RecordingOutputStream whole;
    XMLWriter wholeWriter(whole, true);
    calls(wholeWriter);
    int const count = static_cast<int>(whole.writes.size());
    for (int failing = 2; failing <= count; ++failing)
    {
        FailingOutputStream target(failing);
        XMLWriter writer(target, true);
        EXPECT_EQ(FailureOf([&] { calls(writer); }), testFailure);
        EXPECT_EQ(whole.Content().substr(0, target.Content().size()), target.Content());
    }
}

TEST(XMLWriter, AStartTagWhoseEndFailedStaysOpen)
{
    FailingOutputStream target(4);
    XMLWriter writer(target, false); // the declaration, "<", "a", ">"
    writer.WriteStartElement("a");
    EXPECT_EQ(FailureOf([&] { writer.WriteEndElement(); }), testFailure);
    writer.WriteEndElement();
    EXPECT_EQ(target.Content(), std::string(declaration) + "<a></a>");
}
