#include "Samples.h"

#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <kvcore/config/XMLParser.h>
#include <kvcore/examples/storyboard/Description.h>
#include <kvcore/examples/storyboard/DescriptionTexts.h>
#include <support/ComApartment.h>
#include <support/XmlComponent.h>

namespace Storyboard
{

namespace
{

class DescriptionTest : public ::testing::Test
{
protected:
    kv::test::ComApartment com;
};

std::string Written(Project const & project)
{
    MemoryOutputStream target;
    WriteDescription(project, target);
    return target.GetContent();
}

std::string FailureOfReading(std::string const & xml)
{
    try
    {
        ReadDescription(xml);
    }
    catch (DescriptionFailure const & failure)
    {
        return failure.message;
    }
    return "none";
}

bool Contains(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

std::string Replaced(std::string text, std::string const & part, std::string const & other)
{
    std::size_t const at = text.find(part);
    EXPECT_NE(at, std::string::npos) << part;
    return at == std::string::npos ? text : text.replace(at, part.size(), other);
}

void ExpectRoundTrip(Project const & project)
{
    std::string const xml = Written(project);
    try
    {
        Ptr<Project> const read = ReadDescription(xml);
        EXPECT_EQ(Describe(*read), Describe(project));
        EXPECT_EQ(Written(*read), xml);
        EXPECT_EQ(read->title, project.title);
    }
    catch (DescriptionFailure const & failure)
    {
        ADD_FAILURE() << failure.message << xml;
    }
}

std::string const oddNames[] = {
    "back\\slash",
    "\\x41",
    "tab\tand\nline\r\n",
    "quotes \"'<>&;",
    "\xFF\xFE not UTF-8 \x80",
    "\xC3",
    "\xED\xA0\x80",             // half of a pair
    "\xC0\xAF",                 // an overlong slash
    "\xF4\x90\x80\x80",         // beyond the last character
    "\xEF\xBF\xBE\xEF\xBF\xBF", // no characters
    "\x01\x1F\x7F",
    "]]> --",
    " blanks at both ends ",
    "\xF0\x9F\x98\x80 \xC3\xA4 \xE2\x98\x83",
};

/// A project whose values are drawn from all that its file may hold.
Ptr<Project> RandomProject(unsigned seed)
{
    std::mt19937 random(seed);
    auto const draw = [&](std::size_t below) { return static_cast<std::size_t>(random() % below); };
    auto const ticks = [&]
    {
        Ticks const choices[] = {0, 1, 10, 9'999'999, ticksPerSecond, 36'005'000'000, 133'000'000'000'000'000};
        return choices[draw(std::size(choices))];
    };
    auto const count = [&] { return static_cast<std::int32_t>(draw(3) == 0 ? 0x7FFFFFFF : draw(3) * 100); };
    std::vector<Ptr<Media>> sources;
    std::vector<Ptr<Clip>> clips;
    for (std::size_t i = 0; i < 6; ++i)
    {
        sources.push_back(MakeMedia(
            "a/" + oddNames[draw(std::size(oddNames))], static_cast<std::int64_t>(random()) << 20,
            "00112233445566778899AABBCCDDEEF" + std::string(1, "0123456789ABCDEF"[draw(16)]), ticks()));
    }
    for (std::size_t i = 0; i < 12; ++i)
    {
        Ptr<Clip> const clip = MakeClip(
            oddNames[draw(std::size(oddNames))], sources[draw(sources.size())],
            static_cast<Format::Kind>(draw(Format::kinds)));
        clip->format.encoding = draw(2) == 0 ? "" : oddNames[draw(std::size(oddNames))];
        clip->format.width = count();
        clip->format.height = count();
        clip->format.rate = count();
        clip->format.channels = count();
        clip->range.start = ticks();
        clip->range.length = ticks();
        clip->transition.kind = static_cast<Transition::Kind>(draw(Transition::kinds));
        clip->transition.length = ticks();
        clips.push_back(clip);
    }
    Ptr<Project> project = Ptr<Project>::Make();
    project->title = TEXT("Random");
    for (std::size_t i = draw(6); i != 0; --i)
    {
        Ptr<Bin> const bin = MakeBin(static_cast<Bin::Kind>(draw(Bin::kinds)), oddNames[draw(std::size(oddNames))], {});
        for (std::size_t j = draw(8); j != 0; --j)
        {
            bin->clips.push_back(clips[draw(clips.size())]);
        }
        project->bins.push_back(bin);
    }
    return project;
}

} // namespace

TEST_F(DescriptionTest, AProjectReadsBackEqual)
{
    ExpectRoundTrip(*SampleProject());
    ExpectRoundTrip(*Ptr<Project>::Make());
    for (unsigned seed = 0; seed < 60; ++seed)
    {
        ExpectRoundTrip(*RandomProject(seed));
    }
}

TEST_F(DescriptionTest, OddTextsAreSpelledAndReadBackEqual)
{
    for (std::string const & name : oddNames)
    {
        Ptr<Project> const project = SampleProject();
        project->bins[0]->name = name;
        project->bins[0]->clips[0]->path = name;
        project->bins[0]->clips[0]->media->path = name;
        ExpectRoundTrip(*project);
    }
    for (String const & title :
         {String(TEXT("\\u0041 \\")), String(TEXT("a\0b"), 3), String(TEXT("\x01\t\n\r\uFFFE\uFFFF")),
          String(WString(1, WCHAR(0xD800)) + TEXT("x") + WString(1, WCHAR(0xDC00)) + WString(1, WCHAR(0xDBFF))),
          String(TEXT("\U0001F600 \"<&>'"))})
    {
        Ptr<Project> const project = SampleProject();
        project->title = title;
        ExpectRoundTrip(*project);
    }
}

TEST_F(DescriptionTest, TheEndsOfEveryNumberReadBackEqual)
{
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    Ptr<Project> const project = SampleProject();
    Clip & clip = *project->bins[0]->clips[0];
    for (std::int64_t const ticks : {std::int64_t(0), std::int64_t(1), std::int64_t(10), most - 1, most})
    {
        clip.range.start = clip.range.length = clip.transition.length = ticks;
        clip.media->size = ticks;
        clip.format.width = clip.format.height = clip.format.rate = clip.format.channels =
            static_cast<std::int32_t>(ticks & 0x7FFFFFFF);
        ExpectRoundTrip(*project);
    }
    // The last day that a file can have.
    for (Ticks const moment : {Ticks(1), Ticks(ticksPerSecond), most / 1000 * 999})
    {
        clip.media->modified = moment;
        ExpectRoundTrip(*project);
    }
}

TEST_F(DescriptionTest, WhatIsSharedStaysShared)
{
    Ptr<Project> const project = SampleProject();
    project->bins.push_back(project->bins[0]);
    project->bins[1]->clips.push_back(project->bins[1]->clips[0]);
    ExpectRoundTrip(*project);
    Ptr<Project> const read = ReadDescription(Written(*project));
    EXPECT_EQ(read->bins[3].Get(), read->bins[0].Get());
    EXPECT_EQ(read->bins[1]->clips[3].Get(), read->bins[1]->clips[0].Get());
}

TEST_F(DescriptionTest, LooksAsTheSchemaSays)
{
    std::string const xml = Written(*SampleProject());
    for (char const * const line :
         {"<?xml version=\"1.0\"?>\n<storyboard version=\"1\" title=\"Holidays \xE2\x98\x83\">\n  <sources>\n",
          "    <source id=\"s1\" path=\"sea.png\" size=\"1234\" md5=\"00112233445566778899AABBCCDDEEFF\" "
          "modified=\"2022-06-18T04:26:40.0000000Z\"/>\n",
          "    <clip id=\"c1\" source=\"s1\" path=\"sea.png\">\n"
          "      <format kind=\"picture\" encoding=\"PNG\" width=\"640\" height=\"480\"/>\n"
          "      <range start=\"0\" length=\"5\"/>\n"
          "      <transition kind=\"fade\" length=\"1\"/>\n"
          "    </clip>\n",
          "    <bin id=\"b1\" kind=\"folder\" name=\".\">\n"
          "      <play clip=\"c1\"/>\n",
          "  </bins>\n</storyboard>\n"})
    {
        EXPECT_TRUE(Contains(xml, line)) << line << xml;
    }
}

TEST_F(DescriptionTest, EveryViolationOfTheSchemaIsRefusedWithItsLine)
{
    struct Case
    {
        char const * part;
        char const * other;
        int line; // where it is told: of the element, or of the element whose key it breaks
    };
    Case const cases[] = {
        {" version=\"1\" title", " title", 2},
        {" version=\"1\" title", " version=\"2\" title", 2},
        {" title=\"Holidays \xE2\x98\x83\"", "", 2},
        {"Holidays", "\\x41", 2},
        {"Holidays", "a\\", 2},
        {"<storyboard version", "<storyboard more=\"\" version", 2},
        {"id=\"s1\" ", "", 4},
        {"id=\"s1\"", "id=\"1\"", 4},
        {" path=\"sea.png\" size", " size", 4},
        {"path=\"sea.png\" size", "path=\"\\x4\" size", 4},
        {"path=\"sea.png\" size", "path=\"\\y\" size", 4},
        {"size=\"1234\"", "size=\"-1\"", 4},
        {"size=\"1234\"", "size=\"9223372036854775808\"", 4},
        {"size=\"1234\"", "size=\"many\"", 4},
        {"md5=\"00112233", "md5=\"0011223", 4},
        {"md5=\"0011", "md5=\"001x", 4},
        {"modified=\"2022-06", "modified=\"2022-13", 4},
        {":40.0000000Z", ":40Z", 4},
        {"id=\"s2\"", "id=\"s1\"", 5},
        {"source=\"s1\"", "source=\"s77\"", 10},
        {"kind=\"picture\"", "kind=\"dream\"", 11},
        {" kind=\"picture\"", "", 11},
        {"width=\"640\"", "width=\"0\"", 11},
        {"width=\"640\"", "width=\"2147483648\"", 11},
        {"<range start=\"0\"", "<range", 12},
        {"length=\"5\"", "length=\"5.12345678\"", 12},
        {"length=\"5\"", "length=\"-5\"", 12},
        {"length=\"5\"", "length=\"922337203685.4775808\"", 12},
        {"length=\"5\"", "length=\"1e3\"", 12},
        {"kind=\"fade\"", "kind=\"jump\"", 13},
        {"<transition kind=\"fade\" length=\"1\"/>", "", 10},
        {"<transition kind=\"fade\" length=\"1\"/>", "<range start=\"0\"/>", 13},
        {"id=\"c2\"", "id=\"c1\"", 15},
        {"kind=\"folder\"", "kind=\"drawer\"", 37},
        {"<play clip=\"c1\"/>", "<play/>", 38},
        {"<play clip=\"c1\"/>", "<play clip=\"c99\"/>", 38},
        {"<play clip=\"c1\"/>", "<again bin=\"b1\"/>", 38},
        {"<play clip=\"c1\"/>", "text", 37},
        {"id=\"b2\"", "id=\"b1\"", 41},
        {"<bins>", "<bins><again bin=\"b9\"/>", 36},
    };
    std::string const good = Written(*SampleProject());
    EXPECT_EQ(FailureOfReading(good), "none");
    for (Case const & each : cases)
    {
        std::string const failure = FailureOfReading(Replaced(good, each.part, each.other));
        EXPECT_NE(failure, "none") << each.part << " -> " << each.other;
        EXPECT_TRUE(
            !kv::test::IsStrictComponent() || Contains(failure, "\nLine/Pos: " + std::to_string(each.line) + "/"))
            << each.part << " -> " << each.other << ": " << failure;
    }
}

TEST_F(DescriptionTest, WhatNoProjectCanHoldIsRefused)
{
    struct Case
    {
        char const * part;
        std::string other;
        char const * failure;
    };
    Case const cases[] = {
        {"path=\"sea.png\" size", "path=\"../sea.png\" size",
         "The value \"../sea.png\" of the attribute \"path\" of the source \"s1\" cannot stand in a project.\n"},
        {"path=\"sea.png\">", "path=\"\">",
         "The value \"\" of the attribute \"path\" of the clip \"c1\" cannot stand in a project.\n"},
        {"path=\"sea.png\">", "path=\"/etc\">", "\"/etc\""},
        {"path=\"sea.png\">", "path=\"a\\x00\">", "\"a\\x00\""},
        {"path=\"sea.png\">", "path=\"\\x41\">", "\"\\x41\""}, // which has a better spelling
        {"Holidays", "\\u0041", "\\u0041"},
        {"path=\"sea.png\">", "path=\"" + std::string(maxPathSize + 1, 'a') + "\">", "\"path\" of the clip \"c1\""},
        {"encoding=\"PNG\"", "encoding=\"" + std::string(65, 'a') + "\"", "\"encoding\" of the format"},
        {"modified=\"2022", "modified=\"1600", "\"modified\" of the source \"s1\""},
        {"<bins>", "<bins><again bin=\"b1\"/>", "\"bin\" of the again"},
        {"</sources>", "<source id=\"s9\" path=\"x\" size=\"0\" md5=\"00112233445566778899AABBCCDDEEFF\"/></sources>",
         "There is a source that nothing in the project uses.\n"},
        {"</clips>",
         "<clip id=\"c9\" source=\"s1\" path=\"x\"><format kind=\"other\"/><range start=\"0\"/>"
         "<transition kind=\"cut\"/></clip></clips>",
         "There is a clip that nothing in the project uses.\n"},
    };
    std::string const good = Written(*SampleProject());
    for (Case const & each : cases)
    {
        std::string const failure = FailureOfReading(Replaced(good, each.part, each.other));
        EXPECT_TRUE(Contains(failure, each.failure)) << each.other.substr(0, 100) << ": " << failure.substr(0, 200);
    }
}

TEST_F(DescriptionTest, OtherTextsAreRefused)
{
    std::string const good = Written(*SampleProject());
    for (std::string const & text :
         {std::string(), std::string("text"), std::string("<storyboard/>"), std::string("<other/>"),
          good.substr(0, good.size() / 2), good + good})
    {
        EXPECT_NE(FailureOfReading(text), "none") << text;
    }
}

TEST_F(DescriptionTest, ThePageShowsTheProject)
{
    std::string const page = DescriptionPage(*SampleProject());
    EXPECT_EQ(page.substr(0, 21), "<!DOCTYPE html>\n<html");
    XMLNode const html = XMLParser::ParseData(page.data(), static_cast<int>(page.size())).GetChildNode("html", true);
    EXPECT_EQ(html.GetChildNode("head/title", true).GetText(), TEXT("Holidays \u2603"));
    EXPECT_EQ(html.GetChildNodes("//section", false).size(), 4u);
    EXPECT_EQ(html.GetChildNodes("//section[@id='b2']//tbody/tr", false).size(), 3u);
    EXPECT_EQ(html.GetChildNodes("//section[@id='b1']/div[@class='timeline']/span", false).size(), 2u);
    EXPECT_EQ(html.GetChildNodes("//section[@id='sources']//tbody/tr", false).size(), 4u);
    for (char const * const text :
         {"All pictures", "sea.png", "notes/sea, again.png", "PNG 640 \xC3\x97 480", "0:05.0", "fade 0:01.0", "1.2 KiB",
          "919.8 GiB", "2022-06-18 04:26:40", "FFEEDDCCBBAA99887766554433221100", "content of "})
    {
        EXPECT_TRUE(Contains(html.GetText().Utf8(), text)) << text;
    }
}

TEST_F(DescriptionTest, ThePageNeedsNothingBesideItself)
{
    std::string const page = DescriptionPage(*SampleProject());
    for (char const * const part : {"<script", "<link", "<img", "src=", "url(", "@import", "http:", "https:"})
    {
        EXPECT_FALSE(Contains(page, part)) << part;
    }
    // A browser takes the style as it stands.
    std::size_t const style = page.find("<style>");
    ASSERT_NE(style, std::string::npos);
    EXPECT_FALSE(Contains(page.substr(style, page.find("</style>") - style), "&")) << page;
    // Tags that HTML has as a start alone, so that a browser would take what follows as their content.
    for (char const * const tag : {"div", "span", "p", "td", "th", "a", "b", "small", "section", "nav", "ul", "title"})
    {
        XMLNode const html = XMLParser::ParseData(page.data(), static_cast<int>(page.size()));
        EXPECT_TRUE(html.GetChildNodes(("//" + std::string(tag) + "[not(node())]").c_str(), false).empty()) << tag;
    }
}

TEST_F(DescriptionTest, ThePageShowsOddProjectsToo)
{
    for (unsigned seed = 0; seed < 20; ++seed)
    {
        std::string const page = DescriptionPage(*RandomProject(seed));
        EXPECT_NO_THROW(XMLParser::ParseData(page.data(), static_cast<int>(page.size()))) << page;
        EXPECT_FALSE(Contains(page, "NaN")) << page;
    }
    EXPECT_TRUE(Contains(DescriptionPage(*Ptr<Project>::Make()), "Untitled"));
    Ptr<Project> const marked = SampleProject();
    marked->title = TEXT("<script>alert(1)</script>");
    EXPECT_FALSE(Contains(DescriptionPage(*marked), "<script"));
}

} // namespace Storyboard
