// What profiles and the registry cost as they grow.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>
#include <support/CostGrowth.h>
#include <support/ScratchFolder.h>
#include <support/ScratchKey.h>

namespace
{

using kv::test::GrowsNearLinearly;

/// A profile in a file of its own, of a text that comes again and again.
class ProfileOf
{
public:
    ProfileOf(std::string const & piece, std::size_t size)
    {
        std::string text = "[first]\r\nk=v\r\n";
        while (text.size() < size)
        {
            text += piece;
        }
        folder.Write("p.ini", text);
    }
    WString Path() const
    {
        return folder.Name("p.ini");
    }

private:
    ScratchFolder folder;
};

std::shared_ptr<ProfileOf> MakeProfile(std::string const & piece, std::size_t size)
{
    return std::make_shared<ProfileOf>(piece, size);
}

constexpr std::size_t firstProfile = 1 << 15;
constexpr std::size_t largestProfile = 1 << 20;

} // namespace

TEST(ProfileCost, OfReadingGrowsWithTheText)
{
    for (char const * const piece : {"k=v\r\n", "[s]\r\n", "[", "[s]", "=", "\r", " ", ";\n", "k", "]\n[", "\"\n"})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            firstProfile, largestProfile, [piece](std::size_t size) { return MakeProfile(piece, size); },
            [](auto const & profile)
            {
                std::vector<WCHAR> room(0x7FFF);
                // Nothing is known of the file from the round before.
                WritePrivateProfileStringW(nullptr, nullptr, nullptr, profile->Path().c_str());
                GetPrivateProfileSectionNamesW(room.data(), 0x7FFF, profile->Path().c_str());
                GetPrivateProfileSectionW(TEXT("first"), room.data(), 0x7FFF, profile->Path().c_str());
                GetPrivateProfileStringW(
                    TEXT("none"), TEXT("none"), TEXT(""), room.data(), 100, profile->Path().c_str());
            }))
            << piece;
    }
}

TEST(ProfileCost, OfChangesGrowsWithTheText)
{
    for (char const * const piece : {"k=v\r\n", "[s]\r\n", "[", "\r"})
    {
        EXPECT_TRUE(GrowsNearLinearly(
            firstProfile, largestProfile, [piece](std::size_t size) { return MakeProfile(piece, size); },
            [](auto const & profile)
            {
                EXPECT_TRUE(WritePrivateProfileStringW(TEXT("first"), TEXT("n"), TEXT("1"), profile->Path().c_str()));
                EXPECT_TRUE(WritePrivateProfileStringW(TEXT("first"), TEXT("n"), nullptr, profile->Path().c_str()));
                EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("last"), TEXT("a=1\0"), profile->Path().c_str()));
                EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("last"), nullptr, profile->Path().c_str()));
            }))
            << piece;
    }
}

TEST(ProfileCost, OfOneSectionsLinesGrowsWithTheirNumber)
{
    auto const make = [](std::size_t count)
    {
        WString lines;
        for (std::size_t i = 0; i < count; ++i)
        {
            lines += TEXT("k=v");
            lines += WCHAR(0);
        }
        return std::make_pair(MakeProfile("", 0), lines + WCHAR(0));
    };
    EXPECT_TRUE(GrowsNearLinearly(
        1 << 12, 1 << 17, make,
        [](auto const & input)
        { EXPECT_TRUE(WritePrivateProfileSectionW(TEXT("s"), input.second.c_str(), input.first->Path().c_str())); }));
}

TEST(ProfileCost, OfAStoreOfSectionsGrowsWithItsKeys)
{
    auto const make = [](std::size_t count)
    {
        std::vector<String> keys;
        for (std::size_t i = 0; i < count; ++i)
        {
            keys.push_back(String::FromFormat(TEXT("key %d"), static_cast<int>(i)));
        }
        return keys;
    };
    EXPECT_TRUE(GrowsNearLinearly(
        1 << 12, 1 << 16, make,
        [](std::vector<String> const & keys)
        {
            SectionedConfigData data;
            for (String const & key : keys)
            {
                data.SetInteger(key, key, 1);
            }
            SectionedConfigData const copy(data);
            for (String const & key : keys)
            {
                data.ClearKey(key, key);
            }
            EXPECT_EQ(data.GetNumSections(), 0);
        }));
}

namespace
{

/// A key with as many values and keys.
class KeyOfMany
{
public:
    explicit KeyOfMany(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            String const name = String::FromFormat(TEXT("name %d"), static_cast<int>(i));
            RegSetValueExW(scratch, name.c_str(), 0, REG_SZ, reinterpret_cast<BYTE const *>(TEXT("x")), 4);
            MakeKey(scratch, name);
        }
    }
    HKEY Get() const
    {
        return scratch;
    }

private:
    ScratchKey scratch;
};

} // namespace

TEST(RegistryCost, OfListingGrowsWithWhatIsListed)
{
    EXPECT_TRUE(GrowsNearLinearly(
        100, 400, [](std::size_t count) { return std::make_shared<KeyOfMany>(count); },
        [](auto const & key)
        {
            HKEY opened = nullptr;
            RegOpenKeyExW(key->Get(), TEXT(""), 0, KEY_ALL_ACCESS, &opened);
            SysRegKey const listed(opened);
            std::vector<String> names;
            std::vector<std::string> data;
            EXPECT_TRUE(listed.GetSubkeyNames(names));
            EXPECT_TRUE(listed.GetValueNames(names));
            EXPECT_TRUE(listed.GetAllValues(0, names, data));
        }));
}
