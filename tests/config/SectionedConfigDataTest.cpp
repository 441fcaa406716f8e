#include <cmath>
#include <limits>

#include <kvcore/config/SectionedConfigData.h>

namespace
{

std::vector<String> SectionsOf(SectionedConfigData const & data)
{
    std::vector<String> names{TEXT("left over")};
    data.GetSectionNames(names);
    return names;
}

/// The text of a key that the test expects to be there.
String TextOf(SectionedConfigData const & data, String const & section, String const & key)
{
    String text;
    EXPECT_TRUE(data.GetString(section, key, text));
    return text;
}

SectionedConfigData Holding(String const & text)
{
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("k"), text);
    return data;
}

template <class Value>
Value IntegerOf(String const & text)
{
    Value value{};
    EXPECT_TRUE(Holding(text).GetInteger(TEXT("s"), TEXT("k"), value));
    return value;
}

template <class Value>
String StoredInteger(Value value)
{
    SectionedConfigData data;
    EXPECT_TRUE(data.SetInteger(TEXT("s"), TEXT("k"), value));
    return TextOf(data, TEXT("s"), TEXT("k"));
}

template <class Value>
Value ThroughStore(Value value)
{
    SectionedConfigData data;
    data.SetInteger(TEXT("s"), TEXT("k"), value);
    Value read{};
    EXPECT_TRUE(data.GetInteger(TEXT("s"), TEXT("k"), read));
    return read;
}

TEST(SectionedConfigData, NewOneIsEmpty)
{
    SectionedConfigData const data;
    EXPECT_EQ(data.GetHeader(), TEXT(""));
    EXPECT_EQ(data.GetNumSections(), 0);
    EXPECT_EQ(data.GetNumKeys(TEXT("a")), 0);
    EXPECT_TRUE(SectionsOf(data).empty());
}

TEST(SectionedConfigData, ListsInTheOrderOfUnitsWithTheShorterFirst)
{
    SectionedConfigData data;
    for (WCHAR const * const name : {TEXT("b"), TEXT("ab"), TEXT("a"), TEXT("B"), TEXT(""), TEXT("\xE4"), TEXT("a b")})
    {
        EXPECT_TRUE(data.SetString(name, TEXT("k"), TEXT("v")));
        EXPECT_TRUE(data.SetString(TEXT("keys"), name, name));
    }
    std::vector<String> const ordered{TEXT(""), TEXT("B"), TEXT("a"), TEXT("a b"), TEXT("ab"), TEXT("b")};
    std::vector<String> sections(ordered);
    sections.insert(sections.end(), {TEXT("keys"), TEXT("\xE4")});
    EXPECT_EQ(SectionsOf(data), sections);
    std::vector<String> keys(ordered);
    keys.push_back(TEXT("\xE4"));
    std::vector<String> listed{TEXT("left over")};
    EXPECT_TRUE(data.GetKeyNames(TEXT("keys"), listed));
    EXPECT_EQ(listed, keys);
    EXPECT_EQ(data.GetNumSections(), 8);
    EXPECT_EQ(data.GetNumKeys(TEXT("keys")), 7);
}

TEST(SectionedConfigData, OrderIsThatOfUnitsAndNotOfCharacters)
{
    SectionedConfigData data;
    String const beyond(TEXT("\xD83D\xDE00")); // a pair sorts by its first half
    String const inside(TEXT("\xFF21"));
    data.SetString(inside, TEXT("k"), TEXT("v"));
    data.SetString(beyond, TEXT("k"), TEXT("v"));
    EXPECT_EQ(SectionsOf(data), (std::vector<String>{beyond, inside}));
}

TEST(SectionedConfigData, NamesKnowCase)
{
    SectionedConfigData data;
    data.SetString(TEXT("a"), TEXT("k"), TEXT("1"));
    data.SetString(TEXT("A"), TEXT("k"), TEXT("2"));
    data.SetString(TEXT("a"), TEXT("K"), TEXT("3"));
    EXPECT_EQ(data.GetNumSections(), 2);
    EXPECT_EQ(data.GetNumKeys(TEXT("a")), 2);
    EXPECT_EQ(TextOf(data, TEXT("a"), TEXT("k")), TEXT("1"));
    EXPECT_EQ(TextOf(data, TEXT("A"), TEXT("k")), TEXT("2"));
    EXPECT_EQ(TextOf(data, TEXT("a"), TEXT("K")), TEXT("3"));
}

TEST(SectionedConfigData, TextsAreKeptUnchanged)
{
    for (String const & text : {String(), String(TEXT("  \t x \r\n;=[]")), String(TEXT("a\0b"), 3u)})
    {
        EXPECT_EQ(TextOf(Holding(text), TEXT("s"), TEXT("k")), text);
    }
}

TEST(SectionedConfigData, SettingTwiceKeepsTheSecond)
{
    SectionedConfigData data = Holding(TEXT("1"));
    EXPECT_TRUE(data.SetString(TEXT("s"), TEXT("k"), TEXT("2")));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("k")), TEXT("2"));
    EXPECT_EQ(data.GetNumKeys(TEXT("s")), 1);
}

TEST(SectionedConfigData, MissingValuesLeaveTheOutputAlone)
{
    SectionedConfigData const data = Holding(TEXT("1"));
    for (auto const & [section, key] : {std::pair(TEXT("s"), TEXT("x")), std::pair(TEXT("x"), TEXT("k"))})
    {
        String text(TEXT("same"));
        int number = 7;
        long long longNumber = 8;
        bool flag = true;
        double fraction = 1.25;
        tagPOINT point{1, 2};
        EXPECT_FALSE(data.GetString(section, key, text));
        EXPECT_FALSE(data.GetInteger(section, key, number));
        EXPECT_FALSE(data.GetInteger(section, key, longNumber));
        EXPECT_FALSE(data.GetBoolean(section, key, flag));
        EXPECT_FALSE(data.GetBoolean(section, key, number));
        EXPECT_FALSE(data.GetFloat(section, key, fraction));
        EXPECT_FALSE(data.GetPoint(section, key, point));
        EXPECT_EQ(text, TEXT("same"));
        EXPECT_EQ(number, 7);
        EXPECT_EQ(longNumber, 8);
        EXPECT_TRUE(flag);
        EXPECT_EQ(fraction, 1.25);
        EXPECT_EQ(point.x, 1);
        EXPECT_EQ(point.y, 2);
    }
    std::vector<String> keys{TEXT("same")};
    EXPECT_FALSE(data.GetKeyNames(TEXT("x"), keys));
    EXPECT_EQ(keys, std::vector<String>{TEXT("same")});
}

TEST(SectionedConfigData, ClearKeepsTheHeader)
{
    SectionedConfigData data = Holding(TEXT("1"));
    data.SetHeader(TEXT("head"));
    data.Clear();
    EXPECT_EQ(data.GetNumSections(), 0);
    EXPECT_EQ(data.GetHeader(), TEXT("head"));
}

TEST(SectionedConfigData, HeaderCanBeSetOnAConstantOne)
{
    SectionedConfigData const data;
    data.SetHeader(TEXT("head"));
    EXPECT_EQ(data.GetHeader(), TEXT("head"));
}

TEST(SectionedConfigData, ClearSectionRemovesTheOneSection)
{
    SectionedConfigData data = Holding(TEXT("1"));
    data.SetString(TEXT("S"), TEXT("k"), TEXT("2"));
    data.ClearSection(TEXT("missing"));
    EXPECT_EQ(data.GetNumSections(), 2);
    data.ClearSection(TEXT("s"));
    EXPECT_EQ(SectionsOf(data), std::vector<String>{TEXT("S")});
}

TEST(SectionedConfigData, ClearKeyOfTheLastKeyRemovesTheSection)
{
    SectionedConfigData data = Holding(TEXT("1"));
    data.SetString(TEXT("s"), TEXT("j"), TEXT("2"));
    data.ClearKey(TEXT("s"), TEXT("missing"));
    data.ClearKey(TEXT("missing"), TEXT("k"));
    EXPECT_EQ(data.GetNumKeys(TEXT("s")), 2);
    data.ClearKey(TEXT("s"), TEXT("k"));
    EXPECT_EQ(data.GetNumSections(), 1);
    data.ClearKey(TEXT("s"), TEXT("j"));
    EXPECT_EQ(data.GetNumSections(), 0);
}

TEST(SectionedConfigData, CopyTakesHeaderAndSections)
{
    SectionedConfigData data = Holding(TEXT("1"));
    data.SetHeader(TEXT("head"));
    SectionedConfigData copy(data);
    data.SetHeader(TEXT("other"));
    data.SetString(TEXT("s"), TEXT("k"), TEXT("2"));
    EXPECT_EQ(copy.GetHeader(), TEXT("head"));
    EXPECT_EQ(TextOf(copy, TEXT("s"), TEXT("k")), TEXT("1"));
}

TEST(SectionedConfigData, AssignmentKeepsTheTargetsHeader)
{
    SectionedConfigData source = Holding(TEXT("1"));
    source.SetHeader(TEXT("source"));
    SectionedConfigData target;
    target.SetHeader(TEXT("target"));
    target.SetString(TEXT("gone"), TEXT("k"), TEXT("v"));
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.GetHeader(), TEXT("target"));
    EXPECT_EQ(SectionsOf(target), std::vector<String>{TEXT("s")});
    SectionedConfigData & same = target;
    target = same;
    EXPECT_EQ(target.GetHeader(), TEXT("target"));
    EXPECT_EQ(TextOf(target, TEXT("s"), TEXT("k")), TEXT("1"));
}

// Integers

struct IntegerCase
{
    WCHAR const * text;
    int value;
    long long longValue;
};

constexpr IntegerCase integers[] = {
    {TEXT("abc"), 0, 0},
    {TEXT(""), 0, 0},
    {TEXT("12"), 12, 12},
    {TEXT("-5"), -5, -5},
    {TEXT("+5"), 5, 5},
    {TEXT("+-5"), 0, 0},
    {TEXT("- 5"), 0, 0},
    {TEXT(" \t\r\n\v\f13"), 13, 13},
    {TEXT("\x2003") TEXT("8"), 8, 8},
    {TEXT("12abc"), 12, 12},
    {TEXT("0x10"), 0, 0},
    {TEXT("010"), 10, 10},
    {TEXT("1,2"), 1, 1},
    {TEXT("2147483647"), 2147483647, 2147483647},
    {TEXT("2147483648"), 2147483647, 2147483648},
    {TEXT("-2147483648"), -2147483647 - 1, -2147483648LL},
    {TEXT("-2147483649"), -2147483647 - 1, -2147483649LL},
    {TEXT("4294967295"), 2147483647, 4294967295},
};

TEST(SectionedConfigData, IntegersAreWhatTheTextBeginsWith)
{
    for (IntegerCase const & row : integers)
    {
        SCOPED_TRACE(testing::PrintToString(WString(row.text)));
        EXPECT_EQ(IntegerOf<int>(row.text), row.value);
        EXPECT_EQ(IntegerOf<long>(row.text), row.value);
        EXPECT_EQ(IntegerOf<unsigned int>(row.text), static_cast<unsigned int>(row.value));
        EXPECT_EQ(IntegerOf<unsigned long>(row.text), static_cast<unsigned int>(row.value));
        EXPECT_EQ(IntegerOf<short>(row.text), static_cast<short>(row.value));
        EXPECT_EQ(IntegerOf<unsigned short>(row.text), static_cast<unsigned short>(row.value));
        EXPECT_EQ(IntegerOf<long long>(row.text), row.longValue);
        EXPECT_EQ(IntegerOf<unsigned long long>(row.text), static_cast<unsigned long long>(row.longValue));
    }
}

TEST(SectionedConfigData, LongIntegersEndAtTheirLimits)
{
    EXPECT_EQ(IntegerOf<long long>(TEXT("9223372036854775807")), std::numeric_limits<long long>::max());
    EXPECT_EQ(IntegerOf<long long>(TEXT("9223372036854775808")), std::numeric_limits<long long>::max());
    EXPECT_EQ(IntegerOf<long long>(TEXT("-9223372036854775808")), std::numeric_limits<long long>::min());
    EXPECT_EQ(IntegerOf<long long>(TEXT("-99999999999999999999")), std::numeric_limits<long long>::min());
}

TEST(SectionedConfigData, ShortIntegersAreTheLowBits)
{
    EXPECT_EQ(IntegerOf<short>(TEXT("65537")), 1);
    EXPECT_EQ(IntegerOf<unsigned short>(TEXT("-1")), 0xFFFF);
}

TEST(SectionedConfigData, UnsignedIntegersAreStoredAsSignedOnesOfTheSameBits)
{
    EXPECT_EQ(StoredInteger(0xFFFFFFFFu), TEXT("-1"));
    EXPECT_EQ(StoredInteger(0xFFFFFFFFul), TEXT("-1"));
    EXPECT_EQ(StoredInteger(0xFFFFFFFFFFFFFFFFull), TEXT("-1"));
    EXPECT_EQ(StoredInteger(static_cast<unsigned short>(0xFFFF)), TEXT("65535"));
    EXPECT_EQ(ThroughStore(0xFFFFFFFFu), 0xFFFFFFFFu);
    EXPECT_EQ(ThroughStore(0xFFFFFFFFul), 0xFFFFFFFFul);
    EXPECT_EQ(ThroughStore(0xFFFFFFFFFFFFFFFFull), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(ThroughStore(static_cast<unsigned short>(0xFFFF)), 0xFFFF);
}

TEST(SectionedConfigData, IntegersOfEveryTypeComeBack)
{
    EXPECT_EQ(StoredInteger(static_cast<short>(-32768)), TEXT("-32768"));
    EXPECT_EQ(ThroughStore(static_cast<short>(-32768)), -32768);
    EXPECT_EQ(StoredInteger(std::numeric_limits<int>::min()), TEXT("-2147483648"));
    EXPECT_EQ(ThroughStore(std::numeric_limits<int>::min()), std::numeric_limits<int>::min());
    EXPECT_EQ(ThroughStore(-5L), -5L);
    EXPECT_EQ(StoredInteger(std::numeric_limits<long long>::min()), TEXT("-9223372036854775808"));
    EXPECT_EQ(ThroughStore(std::numeric_limits<long long>::min()), std::numeric_limits<long long>::min());
}

// Booleans

TEST(SectionedConfigData, BooleansAreStoredAsDigits)
{
    SectionedConfigData data;
    EXPECT_TRUE(data.SetBoolean(TEXT("s"), TEXT("a"), true));
    EXPECT_TRUE(data.SetBoolean(TEXT("s"), TEXT("b"), false));
    EXPECT_TRUE(data.SetBoolean(TEXT("s"), TEXT("c"), 256));
    EXPECT_TRUE(data.SetBoolean(TEXT("s"), TEXT("d"), 0));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("a")), TEXT("1"));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("b")), TEXT("0"));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("c")), TEXT("1"));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("d")), TEXT("0"));
}

TEST(SectionedConfigData, BooleansAreTrueForNumbersButZero)
{
    for (auto const & [text, expected] :
         {std::pair(TEXT("1"), true), std::pair(TEXT("2"), true), std::pair(TEXT("-1"), true),
          std::pair(TEXT("0"), false), std::pair(TEXT("yes"), false), std::pair(TEXT("true"), false),
          std::pair(TEXT(""), false)})
    {
        bool flag = !expected;
        int number = 7;
        EXPECT_TRUE(Holding(text).GetBoolean(TEXT("s"), TEXT("k"), flag));
        EXPECT_TRUE(Holding(text).GetBoolean(TEXT("s"), TEXT("k"), number));
        EXPECT_EQ(flag, expected);
        EXPECT_EQ(number, expected ? 1 : 0);
    }
}

// Floating-point numbers

TEST(SectionedConfigData, FloatsAreStoredWithSixDecimals)
{
    for (auto const & [value, text] :
         {std::pair(1.5, TEXT("1.500000")), std::pair(-0.25, TEXT("-0.250000")), std::pair(0.0000004, TEXT("0.000000")),
          std::pair(1e22, TEXT("10000000000000000000000.000000"))})
    {
        SectionedConfigData data;
        EXPECT_TRUE(data.SetFloat(TEXT("s"), TEXT("k"), value));
        EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("k")), text);
    }
}

TEST(SectionedConfigData, FloatTextsAreCutAtThirtyOneCharacters)
{
    SectionedConfigData data;
    data.SetFloat(TEXT("s"), TEXT("k"), 1e25);
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("k")), TEXT("10000000000000000905969664.0000"));
    data.SetFloat(TEXT("s"), TEXT("k"), -1e300);
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("k")).size(), 31u);
    double read = 0;
    EXPECT_TRUE(data.GetFloat(TEXT("s"), TEXT("k"), read));
    EXPECT_LT(read, -1e29);
    EXPECT_GT(read, -2e30);
}

struct FloatCase
{
    WCHAR const * text;
    double value;
};

constexpr FloatCase floats[] = {
    {TEXT("1.5"), 1.5},
    {TEXT("1.5abc"), 1.5},
    {TEXT("  \t2.5e3x"), 2500},
    {TEXT("2.5E3"), 2500},
    {TEXT(".5"), 0.5},
    {TEXT("5."), 5},
    {TEXT("-.5e-2"), -0.005},
    {TEXT("+1"), 1},
    {TEXT("abc"), 0},
    {TEXT(""), 0},
    {TEXT("1e"), 1},
    {TEXT("1e+"), 1},
    {TEXT("+-1"), 0},
    {TEXT("1,5"), 1},
    {TEXT("1d5"), 1},
    {TEXT("0X1P3"), 8},
    {TEXT("1e-400"), 0},
    {TEXT("1e400"), std::numeric_limits<double>::infinity()},
    {TEXT("-INF"), -std::numeric_limits<double>::infinity()},
};

TEST(SectionedConfigData, FloatsAreWhatTheTextBeginsWith)
{
    for (FloatCase const & row : floats)
    {
        double value = 7;
        EXPECT_TRUE(Holding(row.text).GetFloat(TEXT("s"), TEXT("k"), value));
        EXPECT_EQ(value, row.value) << testing::PrintToString(WString(row.text));
    }
}

// Geometry

TEST(SectionedConfigData, PointsAndSizesShareTheirKeys)
{
    SectionedConfigData data;
    EXPECT_TRUE(data.SetSize(TEXT("s"), TEXT("Win"), {3, 4}));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("WinX")), TEXT("3"));
    EXPECT_EQ(TextOf(data, TEXT("s"), TEXT("WinY")), TEXT("4"));
    EXPECT_TRUE(data.SetPoint(TEXT("s"), TEXT("Win"), {-5, 6}));
    EXPECT_EQ(data.GetNumKeys(TEXT("s")), 2);
    tagSIZE size{};
    EXPECT_TRUE(data.GetSize(TEXT("s"), TEXT("Win"), size));
    EXPECT_EQ(size.cx, -5);
    EXPECT_EQ(size.cy, 6);
    tagPOINT point{};
    EXPECT_TRUE(data.GetPoint(TEXT("s"), TEXT("Win"), point));
    EXPECT_EQ(point.x, -5);
    EXPECT_EQ(point.y, 6);
}

TEST(SectionedConfigData, HalfAPointIsNone)
{
    for (WCHAR const * const missing : {TEXT("kX"), TEXT("kY")})
    {
        SectionedConfigData data;
        data.SetPoint(TEXT("s"), TEXT("k"), {3, 4});
        data.ClearKey(TEXT("s"), missing);
        tagPOINT point{1, 2};
        tagSIZE size{1, 2};
        EXPECT_FALSE(data.GetPoint(TEXT("s"), TEXT("k"), point));
        EXPECT_FALSE(data.GetSize(TEXT("s"), TEXT("k"), size));
        EXPECT_EQ(point.x, 1);
        EXPECT_EQ(point.y, 2);
        EXPECT_EQ(size.cx, 1);
        EXPECT_EQ(size.cy, 2);
    }
}

TEST(SectionedConfigData, RectsNeedAllFourKeys)
{
    SectionedConfigData data;
    EXPECT_TRUE(data.SetRect(TEXT("s"), TEXT("k"), {1, -2, 3, 4}));
    tagRECT read{};
    EXPECT_TRUE(data.GetRect(TEXT("s"), TEXT("k"), read));
    EXPECT_EQ(read.left, 1);
    EXPECT_EQ(read.top, -2);
    EXPECT_EQ(read.right, 3);
    EXPECT_EQ(read.bottom, 4);
    for (WCHAR const * const missing : {TEXT("kLeft"), TEXT("kTop"), TEXT("kRight"), TEXT("kBottom")})
    {
        SectionedConfigData part(data);
        part.ClearKey(TEXT("s"), missing);
        tagRECT same{5, 6, 7, 8};
        EXPECT_FALSE(part.GetRect(TEXT("s"), TEXT("k"), same));
        EXPECT_EQ(same.left, 5);
        EXPECT_EQ(same.top, 6);
        EXPECT_EQ(same.right, 7);
        EXPECT_EQ(same.bottom, 8);
    }
}

} // namespace
