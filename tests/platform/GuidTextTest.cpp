#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

GUID const sample = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};

GUID Filled(int byte)
{
    GUID id;
    std::memset(&id, byte, sizeof(id));
    return id;
}

std::string Bytes(GUID const & id)
{
    std::string text;
    for (std::size_t i = 0; i < sizeof(id); ++i)
    {
        unsigned const byte = reinterpret_cast<unsigned char const *>(&id)[i];
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

} // namespace

TEST(GuidText, BracedFormIsParsedInEitherCase)
{
    for (WCHAR const * const text :
         {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}"), TEXT("{00112233-4455-6677-8899-aabbccddeeff}"),
          TEXT("{00112233-4455-6677-8899-aABbCcDdEeFf}")})
    {
        GUID id = Filled(0xCD);
        EXPECT_EQ(CLSIDFromString(text, &id), S_OK);
        EXPECT_EQ(Bytes(id), Bytes(sample));
        id = Filled(0xCD);
        EXPECT_EQ(IIDFromString(text, &id), S_OK);
        EXPECT_EQ(Bytes(id), Bytes(sample));
    }
}

TEST(GuidText, NullTextIsTheZeroIdentifier)
{
    GUID id = Filled(0xCD);
    EXPECT_EQ(CLSIDFromString(nullptr, &id), S_OK);
    EXPECT_EQ(Bytes(id), Bytes(Filled(0)));
    id = Filled(0xCD);
    EXPECT_EQ(IIDFromString(nullptr, &id), S_OK);
    EXPECT_EQ(Bytes(id), Bytes(Filled(0)));
}

TEST(GuidText, NullIdentifierIsInvalid)
{
    EXPECT_EQ(CLSIDFromString(TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}"), nullptr), E_INVALIDARG);
    EXPECT_EQ(CLSIDFromString(nullptr, nullptr), E_INVALIDARG);
}

TEST(GuidText, OtherFormsFailAndLeaveWhatWasRead)
{
    struct
    {
        WCHAR const * text;
        char const * bytes;
    } const rows[] = {
        // What does not begin with a brace clears the identifier.
        {TEXT(""), "00000000000000000000000000000000"},
        {TEXT("x"), "00000000000000000000000000000000"},
        {TEXT("No.Such.Program"), "00000000000000000000000000000000"},
        {TEXT("00112233-4455-6677-8899-AABBCCDDEEFF"), "00000000000000000000000000000000"},
        {TEXT(" {00112233-4455-6677-8899-AABBCCDDEEFF}"), "00000000000000000000000000000000"},
        {TEXT("(00112233-4455-6677-8899-AABBCCDDEEFF)"), "00000000000000000000000000000000"},
        // What does is read up to the first wrong element.
        {TEXT("{"), "00000000cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{0011-"), "11000000cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{0011223g-4455-6677-8899-AABBCCDDEEFF}"), "23120100cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233_4455-6677-8899-AABBCCDDEEFF}"), "33221100cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{001122334455-6677-8899-AABBCCDDEEFF}"), "33221100cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-44x5-6677-8899-AABBCCDDEEFF}"), "332211004400cdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-88x9-AABBCCDDEEFF}"), "332211005544776688cdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-88-99AABBCCDDEEFF}"), "332211005544776688cdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCC\x0141"
              "DEEFF}"),
         "33221100554477668899aabbcccdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFG}"), "33221100554477668899aabbccddeecd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEF}"), "33221100554477668899aabbccddeecd"},
        {TEXT("{\xFF10"
              "0112233-4455-6677-8899-AABBCCDDEEFF}"),
         "00000000cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF"), "33221100554477668899aabbccddeeff"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF)"), "33221100554477668899aabbccddeeff"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF0}"), "33221100554477668899aabbccddeeff"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}x"), "33221100554477668899aabbccddeeff"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF} "), "33221100554477668899aabbccddeeff"},
    };
    for (auto const & row : rows)
    {
        GUID id = Filled(0xCD);
        EXPECT_EQ(CLSIDFromString(row.text, &id), CO_E_CLASSSTRING) << testing::PrintToString(WString(row.text));
        EXPECT_EQ(Bytes(id), row.bytes) << testing::PrintToString(WString(row.text));
    }
}

TEST(GuidText, InterfaceIdentifiersAreJudgedByTheirLengthFirst)
{
    struct
    {
        WCHAR const * text;
        HRESULT result;
        char const * bytes;
    } const rows[] = {
        {TEXT(""), E_INVALIDARG, "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF"), E_INVALIDARG, "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}x"), E_INVALIDARG, "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("{00112233-4455-6677-8899-AABBCCDDEEFFx"), CO_E_IIDSTRING, "33221100554477668899aabbccddeeff"},
        {TEXT("{0011223g-4455-6677-8899-AABBCCDDEEFF}"), CO_E_IIDSTRING, "23120100cdcdcdcdcdcdcdcdcdcdcdcd"},
        {TEXT("(00112233-4455-6677-8899-AABBCCDDEEFF)"), CO_E_IIDSTRING, "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd"},
    };
    for (auto const & row : rows)
    {
        GUID id = Filled(0xCD);
        EXPECT_EQ(IIDFromString(row.text, &id), row.result) << testing::PrintToString(WString(row.text));
        EXPECT_EQ(Bytes(id), row.bytes) << testing::PrintToString(WString(row.text));
    }
}

TEST(GuidText, IsPrintedInUpperCaseWithBraces)
{
    WCHAR buffer[50];
    EXPECT_EQ(StringFromGUID2(sample, buffer, 50), 39);
    EXPECT_EQ(WString(buffer), TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}"));
    EXPECT_EQ(StringFromGUID2(IID_IUnknown, buffer, 50), 39);
    EXPECT_EQ(WString(buffer), TEXT("{00000000-0000-0000-C000-000000000046}"));
}

TEST(GuidText, NeedsRoomForItsNul)
{
    for (int const capacity : {-1, 0, 1, 38})
    {
        WString buffer(40, TEXT('~'));
        EXPECT_EQ(StringFromGUID2(sample, buffer.data(), capacity), 0);
        EXPECT_EQ(buffer, WString(40, TEXT('~')));
    }
    WString buffer(40, TEXT('~'));
    EXPECT_EQ(StringFromGUID2(sample, buffer.data(), 39), 39);
    EXPECT_EQ(buffer[38], 0);
    EXPECT_EQ(buffer[39], TEXT('~'));
}

TEST(GuidText, AllocatedFormsReturnTaskMemory)
{
    LPOLESTR text = nullptr;
    ASSERT_EQ(StringFromCLSID(sample, &text), S_OK);
    EXPECT_EQ(WString(text), TEXT("{00112233-4455-6677-8899-AABBCCDDEEFF}"));
    CoTaskMemFree(text);
    text = nullptr;
    ASSERT_EQ(StringFromIID(IID_IUnknown, &text), S_OK);
    EXPECT_EQ(WString(text), TEXT("{00000000-0000-0000-C000-000000000046}"));
    CoTaskMemFree(text);
}

TEST(TaskMemory, GrowsKeepingItsBytesAndEndsAtSizeZero)
{
    void * memory = CoTaskMemAlloc(0);
    EXPECT_NE(memory, nullptr);
    memory = CoTaskMemRealloc(memory, 4);
    ASSERT_NE(memory, nullptr);
    std::memcpy(memory, "abc", 4);
    memory = CoTaskMemRealloc(memory, 40000);
    ASSERT_NE(memory, nullptr);
    EXPECT_STREQ(static_cast<char *>(memory), "abc");
    EXPECT_EQ(CoTaskMemRealloc(memory, 0), nullptr);
    CoTaskMemFree(nullptr);
}
