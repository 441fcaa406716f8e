#include <kvcore/frame/detail/DialogResource.h>

#include <limits>
#include <memory>

#include <gtest/gtest.h>

namespace
{

using kv::detail::DialogPlace;
using kv::detail::ParseDialog;
using kv::detail::ScaleDialogPlaces;

/// A copy of bytes with nothing behind it that would go unnoticed.
class Block
{
public:
    explicit Block(std::string const & bytes) : data(new char[bytes.size()]), size(bytes.size())
    {
        bytes.copy(data.get(), size);
    }
    char * Data() const
    {
        return data.get();
    }
    std::string_view Bytes() const
    {
        return std::string_view(data.get(), size);
    }

private:
    std::unique_ptr<char[]> data;
    std::size_t size;
};

/// Puts a dialog resource together.
class Resource
{
public:
    Resource & Byte(int value)
    {
        bytes.push_back(static_cast<char>(value));
        return *this;
    }
    Resource & Word(int value)
    {
        return Byte(value & 0xFF).Byte(value >> 8 & 0xFF);
    }
    Resource & Long(unsigned value)
    {
        return Word(int(value & 0xFFFF)).Word(int(value >> 16));
    }
    Resource & Text(char const * text)
    {
        for (; *text != 0; ++text)
        {
            Word(*text);
        }
        return Word(0);
    }
    Resource & Ordinal(int value)
    {
        return Word(0xFFFF).Word(value);
    }
    Resource & Place(int x, int y, int cx, int cy)
    {
        return Word(x).Word(y).Word(cx).Word(cy);
    }
    Resource & Align(std::size_t multiple)
    {
        while (bytes.size() % multiple != 0)
        {
            Byte(0);
        }
        return *this;
    }
    Resource & StandardHeader(unsigned style, int items, int x, int y, int cx, int cy)
    {
        return Long(style).Long(0x00010000).Word(items).Place(x, y, cx, cy);
    }
    Resource & ExtendedHeader(unsigned style, int items, int x, int y, int cx, int cy)
    {
        return Word(1).Word(0xFFFF).Long(77).Long(0x00020000).Long(style).Word(items).Place(x, y, cx, cy);
    }

    std::string bytes;
};

DialogTemplate Parsed(Resource const & resource)
{
    Block const block(resource.bytes);
    DialogTemplate result;
    EXPECT_TRUE(ParseDialog(block.Bytes(), result));
    return result;
}

std::string Scaled(Resource const & resource, double x, double y)
{
    Block const block(resource.bytes);
    ScaleDialogPlaces(block.Data(), block.Bytes().size(), x, y);
    return std::string(block.Bytes());
}

TEST(DialogParsing, ReadsTheStandardForm)
{
    Resource resource;
    resource.StandardHeader(0x80C80040, 0, -3, 4, 100, 50).Ordinal(9).Text("Box").Text("Title").Word(8).Text("Tahoma");
    DialogTemplate const dialog = Parsed(resource);
    EXPECT_FALSE(dialog.extended);
    EXPECT_EQ(dialog.version, 0);
    EXPECT_EQ(dialog.signature, 0);
    EXPECT_EQ(dialog.helpId, 0u);
    EXPECT_EQ(dialog.style, 0x80C80040u);
    EXPECT_EQ(dialog.exStyle, 0x00010000u);
    EXPECT_EQ(dialog.rect.left, -3);
    EXPECT_EQ(dialog.rect.top, 4);
    EXPECT_EQ(dialog.rect.right, 97);
    EXPECT_EQ(dialog.rect.bottom, 54);
    EXPECT_EQ(dialog.menu, TEXT("#9"));
    EXPECT_EQ(dialog.windowClass, TEXT("Box"));
    EXPECT_EQ(dialog.title, TEXT("Title"));
    EXPECT_EQ(dialog.pointSize, 8);
    EXPECT_EQ(dialog.fontName, TEXT("Tahoma"));
    EXPECT_TRUE(dialog.items.empty());
}

TEST(DialogParsing, ReadsTheExtendedForm)
{
    Resource resource;
    resource.ExtendedHeader(0x08, 0, 1, 2, 3, 4).Word(0).Ordinal(0x82).Word(0);
    resource.Word(9).Word(400).Byte(1).Byte(7).Text("Sans");
    DialogTemplate const dialog = Parsed(resource);
    EXPECT_TRUE(dialog.extended);
    EXPECT_EQ(dialog.version, 1);
    EXPECT_EQ(dialog.signature, 0xFFFF);
    EXPECT_EQ(dialog.helpId, 77u);
    EXPECT_EQ(dialog.style, 0x08u);
    EXPECT_EQ(dialog.exStyle, 0x00020000u);
    EXPECT_EQ(dialog.menu, TEXT(""));
    EXPECT_EQ(dialog.windowClass, TEXT("#130"));
    EXPECT_EQ(dialog.pointSize, 9);
    EXPECT_EQ(dialog.weight, 400);
    EXPECT_EQ(dialog.italic, 1);
    EXPECT_EQ(dialog.charset, 7);
    EXPECT_EQ(dialog.fontName, TEXT("Sans"));
}

TEST(DialogParsing, LooksForAFontOnlyIfTheStyleHasOne)
{
    // The bit of the shell's font alone counts in the extended form only.
    Resource standard;
    standard.StandardHeader(0x08, 0, 0, 0, 0, 0).Word(0).Word(0).Word(0).Word(9).Text("Sans");
    EXPECT_TRUE(Parsed(standard).fontName.empty());
    Resource extended;
    extended.ExtendedHeader(0x80, 0, 0, 0, 0, 0).Word(0).Word(0).Word(0).Word(9).Word(0).Word(0).Text("Sans");
    EXPECT_TRUE(Parsed(extended).fontName.empty());
}

TEST(DialogParsing, LeavesTheSizeOfAStandardItemsDataWhereItIs)
{
    Resource resource;
    resource.StandardHeader(0, 2, 0, 0, 0, 0).Word(0).Word(0).Word(0).Align(4);
    // 18 bytes, an ordinal, "ab" and the size end at a multiple of 4 less 2: the word is passed by rounding up.
    resource.Long(1).Long(2).Place(3, 4, 5, 6).Word(7).Ordinal(0x80).Text("abc").Word(0).Align(4);
    resource.Long(11).Long(12).Place(13, 14, 15, 16).Word(17).Ordinal(0x82).Text("z").Word(0);
    DialogTemplate const dialog = Parsed(resource);
    ASSERT_EQ(dialog.items.size(), 2u);
    DialogItem const & first = dialog.items.front();
    EXPECT_EQ(first.style, 1u);
    EXPECT_EQ(first.exStyle, 2u);
    EXPECT_EQ(first.x, 3);
    EXPECT_EQ(first.y, 4);
    EXPECT_EQ(first.cx, 5);
    EXPECT_EQ(first.cy, 6);
    EXPECT_EQ(first.id, 7);
    EXPECT_EQ(first.helpId, 0u);
    EXPECT_EQ(first.windowClass, TEXT("#128"));
    EXPECT_EQ(first.title, TEXT("abc"));
    EXPECT_TRUE(first.creationData.empty());
    EXPECT_EQ(dialog.items.back().style, 11u);
    EXPECT_EQ(dialog.items.back().windowClass, TEXT("#130"));
    EXPECT_EQ(dialog.items.back().title, TEXT("z"));
}

TEST(DialogParsing, TakesTheSizeWordForTheBeginningOfTheNextItemOnAMultipleOfFour)
{
    Resource resource;
    resource.StandardHeader(0, 2, 0, 0, 0, 0).Word(0).Word(0).Word(0).Align(4);
    resource.Long(1).Long(2).Place(3, 4, 5, 6).Word(7).Ordinal(0x80).Text("ab").Word(0).Align(4);
    ASSERT_EQ(resource.bytes.size() % 4, 0u);
    resource.Long(11).Long(12).Place(13, 14, 15, 16).Word(17).Ordinal(0x82).Text("z").Word(0);
    // The first item is 24 + 18 + 4 + 6 = 52 long up to its size: the second one is read from there.
    DialogTemplate const dialog = Parsed(resource);
    ASSERT_EQ(dialog.items.size(), 2u);
    EXPECT_EQ(dialog.items.back().style, 0u);
    EXPECT_EQ(dialog.items.back().exStyle, 11u);
}

TEST(DialogParsing, TakesAStandardItemsDataFromTheirSizeOn)
{
    Resource resource;
    resource.StandardHeader(0, 1, 0, 0, 0, 0).Word(0).Word(0).Word(0).Align(4);
    resource.Long(1).Long(2).Place(3, 4, 5, 6).Word(7).Ordinal(0x80).Text("a").Word(4).Byte('x').Byte('y').Byte('z');
    EXPECT_EQ(Parsed(resource).items.front().creationData, std::string("\4\0xy", 4));
}

TEST(DialogParsing, ReadsAnExtendedItemOneFieldOn)
{
    Resource resource;
    resource.ExtendedHeader(0, 1, 0, 0, 0, 0).Word(0).Word(0).Word(0).Align(4);
    resource.Long(70).Long(71).Long(72).Place(1, 2, 3, 4).Long(1001).Ordinal(0x80).Text("OK").Word(0);
    DialogTemplate const dialog = Parsed(resource);
    ASSERT_EQ(dialog.items.size(), 1u);
    DialogItem const & item = dialog.items.front();
    EXPECT_EQ(item.helpId, 70u);
    EXPECT_EQ(item.exStyle, 71u);
    EXPECT_EQ(item.style, 72u);
    EXPECT_EQ(item.x, 1);
    EXPECT_EQ(item.cy, 4);
    EXPECT_EQ(item.id, 1001);
    EXPECT_EQ(item.windowClass, TEXT("")) << "the identifier's upper half";
    EXPECT_EQ(item.title, TEXT("#128")) << "what is the class";
    // What is the title gives the size of the data: 'O', of which the resource has less.
    EXPECT_EQ(item.creationData, std::string("K\0\0\0\0\0", 6));
}

TEST(DialogParsing, StopsAtTheEndOfTheResource)
{
    Resource resource;
    resource.StandardHeader(0x40, 3, 1, 2, 3, 4).Text("menu").Text("class").Text("title").Word(8).Text("Font").Align(4);
    resource.Long(1).Long(2).Place(3, 4, 5, 6).Word(7).Text("cls").Text("ttl").Word(0).Align(4);
    resource.Long(1).Long(2).Place(3, 4, 5, 6).Word(7).Text("cls").Text("ttl").Word(8).Long(5).Long(6);
    for (std::size_t size = 0; size <= resource.bytes.size(); ++size)
    {
        Block const block(resource.bytes.substr(0, size));
        DialogTemplate dialog;
        dialog.fontName = TEXT("old");
        std::string_view const bytes = block.Bytes();
        EXPECT_EQ(ParseDialog(bytes, dialog), size >= 18) << size;
        EXPECT_LE(dialog.items.size(), 2u);
        EXPECT_NE(dialog.fontName, TEXT("old"));
        EXPECT_EQ(DialogPlace(bytes).right, size >= 18 ? 4 : 0);
    }
}

TEST(DialogScaling, CutsTowardsZeroAndEvensOutWidths)
{
    struct Case
    {
        double factor;
        int x, cx, scaledX, scaledCx;
    };
    Case const cases[] = {
        {1.5, 1, 3, 1, 4},   {1.5, 3, 3, 4, 4}, {1.5, 2, 7, 3, 11},       {2.0, 5, 7, 10, 14},
        {1.5, -1, 3, -1, 5}, {0.5, 3, 3, 1, 1}, {1.25, 100, 50, 125, 63}, {1.5, 0, 1, 0, 2},
    };
    for (Case const & one : cases)
    {
        Resource resource;
        resource.StandardHeader(0, 0, one.x, one.x, one.cx, one.cx).Word(0).Word(0).Word(0);
        Resource expected;
        expected.StandardHeader(0, 0, one.scaledX, one.scaledX, one.scaledCx, one.scaledCx).Word(0).Word(0).Word(0);
        EXPECT_EQ(Scaled(resource, one.factor, one.factor), expected.bytes) << one.factor << " " << one.x;
    }
}

TEST(DialogScaling, ScalesEachDirectionByItsOwnFactor)
{
    Resource resource;
    resource.ExtendedHeader(0, 0, 2, 2, 4, 4).Word(0).Word(0).Word(0);
    Resource expected;
    expected.ExtendedHeader(0, 0, 4, 6, 8, 12).Word(0).Word(0).Word(0);
    EXPECT_EQ(Scaled(resource, 2, 3), expected.bytes);
}

/// Two controls in the extended form; `factor` is in what they are measured.
Resource ExtendedDialog(int factor)
{
    Resource resource;
    resource.ExtendedHeader(0x48, 2, 0, 0, 10 * factor, 20 * factor).Ordinal(5).Text("cls").Text("tl");
    resource.Word(8).Word(400).Byte(0).Byte(1).Text("Sans").Align(4);
    resource.Long(1).Long(2).Long(3).Place(1 * factor, 2 * factor, 3 * factor, 4 * factor).Long(9);
    resource.Ordinal(0x80).Text("OK").Word(4).Long(0x01010101).Align(4);
    resource.Long(1).Long(2).Long(3).Place(5 * factor, 6 * factor, 7 * factor, 8 * factor).Long(9);
    resource.Text("edit").Ordinal(3).Word(0);
    return resource;
}

TEST(DialogScaling, FindsTheItemsOfTheExtendedForm)
{
    EXPECT_EQ(Scaled(ExtendedDialog(1), 2, 2), ExtendedDialog(2).bytes);
}

Resource StandardDialog(int factor)
{
    Resource resource;
    resource.StandardHeader(0x40, 3, 0, 0, 10 * factor, 20 * factor).Ordinal(5).Text("cls").Text("tl");
    resource.Word(8).Text("Sans").Align(4);
    resource.Long(1).Long(2).Place(1 * factor, 2 * factor, 3 * factor, 4 * factor).Word(9);
    resource.Ordinal(0x80).Text("OK").Word(0).Align(4);
    resource.Long(1).Long(2).Place(5 * factor, 6 * factor, 7 * factor, 8 * factor).Word(9);
    resource.Text("edit").Text("").Word(0).Align(4);
    resource.Long(1).Long(2).Place(5 * factor, 6 * factor, 7 * factor, 8 * factor).Word(9);
    resource.Text("edit").Text("x").Word(0).Align(4);
    return resource;
}

TEST(DialogScaling, FindsTheItemsOfTheStandardForm)
{
    EXPECT_EQ(Scaled(StandardDialog(1), 2, 2), StandardDialog(2).bytes);
}

TEST(DialogScaling, WritesNothingBehindTheEnd)
{
    for (Resource const & whole : {ExtendedDialog(1), StandardDialog(1)})
    {
        for (std::size_t size = 0; size < whole.bytes.size(); ++size)
        {
            Resource cut = whole;
            cut.bytes.resize(size);
            EXPECT_EQ(Scaled(cut, 2, 2).size(), size);
        }
    }
}

TEST(DialogScaling, SurvivesImpossibleFactors)
{
    for (double const factor :
         {1e300, -1e300, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
    {
        EXPECT_EQ(Scaled(StandardDialog(1), factor, factor).size(), StandardDialog(1).bytes.size());
    }
}

} // namespace
