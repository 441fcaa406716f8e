#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <kvcore/files/FileFinder.h>
#include <kvcore/streams/MemoryStreams.h>
#include <support/CostGrowth.h>
#include <support/StreamFailure.h>

namespace
{

constexpr __int64 hour = 36'000'000'000;

WIN32_FIND_DATAW Record(WCHAR const * name)
{
    WIN32_FIND_DATAW record = {};
    for (std::size_t i = 0; name[i] != 0; ++i)
    {
        record.cFileName[i] = name[i];
    }
    return record;
}

FileData Data(WIN32_FIND_DATAW const & record)
{
    FileData data;
    static_assert(sizeof(data) == sizeof(record));
    std::memcpy(static_cast<void *>(&data), &record, sizeof(record));
    return data;
}

FILETIME Time(__int64 ticks)
{
    FILETIME time;
    std::memcpy(&time, &ticks, sizeof(time));
    return time;
}

} // namespace

TEST(FileData, IsZeroAtFirstAndWhenCleared)
{
    std::string const zeros(592, '\0');
    FileData data;
    EXPECT_EQ(std::memcmp(&data, zeros.data(), 592), 0);
    data = Data(Record(TEXT("name")));
    EXPECT_EQ(data.GetFileName(), TEXT("name"));
    data.Clear();
    EXPECT_EQ(std::memcmp(&data, zeros.data(), 592), 0);
}

TEST(FileData, ShowsTheRecordsFields)
{
    WIN32_FIND_DATAW record = Record(TEXT("clip.one.avi"));
    record.cAlternateFileName[0] = 'C';
    record.nFileSizeHigh = 0x12;
    record.nFileSizeLow = 0x90000000;
    record.ftCreationTime = Time(1);
    record.ftLastAccessTime = Time(2);
    record.ftLastWriteTime = Time(hour);
    FileData const data = Data(record);
    EXPECT_EQ(data.GetFileName(), TEXT("clip.one.avi"));
    EXPECT_EQ(data.GetShortFileName(), TEXT("C"));
    EXPECT_EQ(data.GetFileExtension(), TEXT(".avi"));
    EXPECT_EQ(data.GetFileSize(), 0x1290000000);
    EXPECT_EQ((data.GetCreationTime() - DateTime()).GetTicks(), 1);
    EXPECT_EQ((data.GetLastAccessTime() - DateTime()).GetTicks(), 2);
    EXPECT_EQ((data.GetLastWriteTime() - DateTime()).GetTicks(), hour);
    EXPECT_EQ(Data(Record(TEXT("name"))).GetFileExtension(), String());
    EXPECT_EQ(Data(Record(TEXT(".profile"))).GetFileExtension(), TEXT(".profile"));
}

TEST(FileData, ShowsOneBitOfTheAttributesEach)
{
    bool (FileData::*const questions[])()
        const = {&FileData::IsReadOnly,  &FileData::IsHidden,   &FileData::IsSystem,
                 &FileData::IsDirectory, &FileData::IsArchived, &FileData::IsCompressed};
    DWORD const bits[] = {1, 2, 4, 0x10, 0x20, 0x800};
    for (std::size_t i = 0; i < std::size(bits); ++i)
    {
        WIN32_FIND_DATAW record = {};
        record.dwFileAttributes = bits[i];
        FileData const set = Data(record);
        record.dwFileAttributes = ~bits[i];
        FileData const others = Data(record);
        EXPECT_TRUE((set.*questions[i])()) << i;
        EXPECT_FALSE((others.*questions[i])()) << i;
    }
}

TEST(FileData, DotsAreDirectories)
{
    struct
    {
        WCHAR const * name;
        bool dots;
    } const rows[] = {{TEXT("."), true},   {TEXT(".."), true}, {TEXT("..."), false},
                      {TEXT(".x"), false}, {TEXT(""), false},  {TEXT("..x"), false}};
    for (auto const & row : rows)
    {
        WIN32_FIND_DATAW record = Record(row.name);
        EXPECT_FALSE(Data(record).IsDots()) << "of a file";
        record.dwFileAttributes = 0x10;
        EXPECT_EQ(Data(record).IsDots(), row.dots) << String(row.name).Utf8();
    }
}

TEST(FileData, EqualFileTimesAreIdenticalOrAnHourApart)
{
    struct
    {
        __int64 distance;
        bool equal;
    } const rows[] = {
        {0, true},
        {1, false},
        {9'999, false},
        {10'000'000, false},
        {hour, true},
        {hour + 9'999, true},
        {hour - 9'999, true},
        {hour + 10'000, false},
        {hour - 10'000, false},
        {hour + 10'000'000, false},
        {2 * hour, false},
        {hour + (static_cast<__int64>(1) << 32), true}, // the low halves are what is compared
        {0x61C46800, true},
        {0xE1C46800, true}, // a remainder of -2^31, which has no magnitude
    };
    for (auto const & row : rows)
    {
        DateTime const first(Time(126'000'000'000'000'000));
        DateTime const second = first + TimeSpan(row.distance);
        EXPECT_EQ(FileData::IsEqualFileTime(first, second), row.equal) << row.distance;
        EXPECT_EQ(FileData::IsEqualFileTime(second, first), row.equal) << row.distance;
    }
}

TEST(FileData, EqualityIgnoresCaseAndTheLastAccess)
{
    WIN32_FIND_DATAW record = Record(TEXT("Name"));
    record.cAlternateFileName[0] = 'S';
    FileData const data = Data(record);
    WIN32_FIND_DATAW other = Record(TEXT("nAME"));
    other.cAlternateFileName[0] = 's';
    other.ftLastAccessTime = Time(77);
    other.ftCreationTime = Time(hour);
    EXPECT_TRUE(data == Data(other));
    EXPECT_FALSE(data != Data(other));

    auto const differs = [&](auto change)
    {
        WIN32_FIND_DATAW changed = other;
        change(changed);
        return data != Data(changed);
    };
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.cFileName[3] = 'F'; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.cFileName[4] = 'x'; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.cAlternateFileName[0] = 'X'; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.dwFileAttributes = 1; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.nFileSizeHigh = 1; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.nFileSizeLow = 1; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.ftCreationTime.dwLowDateTime += 20'000; }));
    EXPECT_TRUE(differs([](WIN32_FIND_DATAW & r) { r.ftLastWriteTime.dwLowDateTime = 1; }));
}

TEST(FileData, NamesEndAtTheirFieldsEnd)
{
    WIN32_FIND_DATAW record;
    std::memset(static_cast<void *>(&record), 'x', sizeof(record));
    FileData const data = Data(record);
    EXPECT_EQ(data.GetFileName().size(), 260u);
    EXPECT_EQ(data.GetShortFileName().size(), 14u);
    EXPECT_EQ(data.GetFileExtension(), String());
    EXPECT_TRUE(data == Data(record));
}

TEST(FileData, TravelsAsItLiesInMemory)
{
    WIN32_FIND_DATAW record = Record(TEXT("Ab"));
    record.dwFileAttributes = 0x21;
    record.ftLastWriteTime = Time(0x0102030405060708);
    record.nFileSizeHigh = 1;
    record.nFileSizeLow = 2;
    MemoryOutputStream written;
    written << Data(record);
    std::string const bytes = written.GetContent();
    ASSERT_EQ(bytes.size(), 592u);
    EXPECT_EQ(bytes.substr(0, 4), std::string("\x21\0\0\0", 4));
    EXPECT_EQ(bytes.substr(20, 8), "\x08\x07\x06\x05\x04\x03\x02\x01") << "low half first";
    EXPECT_EQ(bytes.substr(28, 8), std::string("\1\0\0\0\2\0\0\0", 8)) << "high half first";
    EXPECT_EQ(bytes.substr(44, 6), std::string("A\0b\0\0\0", 6));

    FileData const back;
    MemoryInputStream stream(bytes);
    stream >> back;
    EXPECT_EQ(std::memcmp(&back, bytes.data(), 592), 0);

    MemoryInputStream cut(bytes.substr(0, 591));
    EXPECT_EQ(kv::test::FailureOf([&] { cut >> back; }), "5: Memory block too short");
}

TEST(FileDataCosts, RecordsAreReadInATimeThatGrowsWithTheirNumber)
{
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        100, 100, [](std::size_t records) { return std::string(records * 592, 'x'); },
        [](std::string const & bytes)
        {
            MemoryInputStream stream(bytes);
            FileData record;
            for (std::size_t i = 0; i < bytes.size() / 592; ++i)
            {
                stream >> record;
                EXPECT_EQ(record.GetFileName().size(), 260u);
                EXPECT_TRUE(record == record);
            }
        }));
}
