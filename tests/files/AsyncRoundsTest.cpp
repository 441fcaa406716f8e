// Ten thousand rounds of random operations on an asynchronous stream and on a model of it: equal content at the end.

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <support/AsyncFiles.h>
#include <support/FileErrors.h>
#include <support/ScratchFolder.h>

using namespace kv::test;

namespace
{

constexpr std::size_t farthest = 200'000;
constexpr std::size_t longest = 600;
constexpr std::size_t mostOnTheirWay = 40;

/// The stream beside a plain text and a position. The system promises no order between requests on their way, so those
/// that meet are not issued together.
class Rounds
{
public:
    explicit Rounds(unsigned seed) : random(seed), stream(folder.Name("a")) {}

    void ExpectTheModelsContentAfter(int count)
    {
        for (int round = 0; round < count && !testing::Test::HasFailure(); ++round)
        {
            SCOPED_TRACE(round);
            Round();
        }
        CloseAndCompare();
    }

private:
    using Stream = BasicAsyncFileStream;

    struct Transfer
    {
        std::size_t place;
        std::size_t end;
        bool writing;
        std::string bytes; // what is written, or the place for what is read
        std::string expected;
        HASYNC request;
    };

    std::size_t Below(std::size_t bound)
    {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    }

    void Round()
    {
        switch (Below(40))
        {
        case 0:
            CloseAndCompare();
            return;
        case 1:
            stream.Flush();
            Compare();
            return;
        case 2:
        case 3:
            Seek();
            return;
        case 4:
        case 5:
            WaitForOne();
            return;
        default:
            Issue();
        }
    }

    void CloseAndCompare()
    {
        stream.Close();
        Compare();
        position = 0;
        EXPECT_TRUE(folder.Read("a") == text);
        stream.Open(
            folder.Name("a"), FileAccess_ReadWrite, FileShare_Read | FileShare_Write, FileCreation_OpenExisting,
            FileAttributes_Normal);
    }

    /// Nothing is on its way any more.
    void Compare()
    {
        for (Transfer const & transfer : onTheirWay)
        {
            EXPECT_TRUE(transfer.writing || transfer.bytes == transfer.expected) << transfer.place;
            EXPECT_TRUE(transfer.request == nullptr || !stream.IsOpen() || stream.HasCompleted(transfer.request));
        }
        onTheirWay.clear();
        EXPECT_EQ(
            stream.IsOpen() ? stream.GetSize() : static_cast<__int64>(text.size()), static_cast<__int64>(text.size()));
    }

    void Seek()
    {
        auto const to = static_cast<__int64>(Below(farthest));
        if (Below(2) == 0)
        {
            EXPECT_EQ(stream.SetPosition(to, FileSeek_Begin), to);
        }
        else
        {
            EXPECT_EQ(stream.SetPosition(to - static_cast<__int64>(position), FileSeek_Current), to);
        }
        position = static_cast<std::size_t>(to);
    }

    void WaitForOne()
    {
        if (!onTheirWay.empty())
        {
            Transfer const & transfer = onTheirWay[Below(onTheirWay.size())];
            if (transfer.request != nullptr)
            {
                stream.Wait(transfer.request);
                EXPECT_TRUE(transfer.writing || transfer.bytes == transfer.expected) << transfer.place;
            }
        }
    }

    bool Meets(std::size_t place, std::size_t end, bool writing) const
    {
        return std::any_of(
            onTheirWay.begin(), onTheirWay.end(),
            [&](Transfer const & other)
            { return (writing || other.writing) && place < other.end && other.place < end; });
    }

    void Issue()
    {
        bool const writing = Below(2) == 0;
        bool const elsewhere = Below(2) == 0;
        std::size_t const place = elsewhere || position > farthest ? Below(farthest) : position;
        std::size_t const count = Below(longest);
        std::size_t const end = place + count;
        // How much a read at the end of the file finds depends on what is on its way.
        if (onTheirWay.size() == mostOnTheirWay || Meets(place, end, writing) || (!writing && end > text.size()))
        {
            stream.Flush();
            Compare();
        }
        if (place != position && !elsewhere)
        {
            stream.SetPosition(static_cast<__int64>(place), FileSeek_Begin);
        }
        writing ? Write(place, count, elsewhere) : Read(place, count, elsewhere);
        position = end;
        EXPECT_EQ(stream.SetPosition(0, FileSeek_Current), static_cast<__int64>(position));
    }

    void Write(std::size_t place, std::size_t count, bool elsewhere)
    {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>('a' + Below(26)); });
        if (count != 0)
        {
            text.resize(std::max(text.size(), place + count), '\0');
            text.replace(place, count, bytes);
        }
        onTheirWay.push_back({place, place + count, true, std::move(bytes), {}, nullptr});
        Transfer & transfer = onTheirWay.back();
        auto const size = static_cast<DWORD>(count);
        auto const to = static_cast<__int64>(place);
        switch (Below(3))
        {
        case 0:
            elsewhere ? stream.WriteAsync(transfer.bytes.data(), size, to)
                      : stream.WriteAsync(transfer.bytes.data(), size);
            break;
        case 1:
            transfer.request = elsewhere ? stream.WriteAsyncEx(transfer.bytes.data(), size, to)
                                         : stream.WriteAsyncEx(transfer.bytes.data(), size);
            break;
        default:
            stream.SetPosition(to, FileSeek_Begin);
            EXPECT_EQ(stream.Write(transfer.bytes.data(), size), size);
        }
    }

    void Read(std::size_t place, std::size_t count, bool elsewhere)
    {
        auto const size = static_cast<DWORD>(count);
        auto const from = static_cast<__int64>(place);
        if (place + count > text.size()) // at the end a request with a handle would latch its failure
        {
            ReadAtTheEnd(place, count);
            return;
        }
        onTheirWay.push_back(
            {place, place + count, false, std::string(count, '\0'), text.substr(place, count), nullptr});
        Transfer & transfer = onTheirWay.back();
        switch (Below(3))
        {
        case 0:
            elsewhere ? stream.ReadAsync(transfer.bytes.data(), size, from)
                      : stream.ReadAsync(transfer.bytes.data(), size);
            break;
        case 1:
            transfer.request = elsewhere ? stream.ReadAsyncEx(transfer.bytes.data(), size, from)
                                         : stream.ReadAsyncEx(transfer.bytes.data(), size);
            break;
        default:
            stream.SetPosition(from, FileSeek_Begin);
            EXPECT_EQ(stream.Read(transfer.bytes.data(), size), size);
            EXPECT_TRUE(transfer.bytes == transfer.expected);
        }
    }

    void ReadAtTheEnd(std::size_t place, std::size_t count)
    {
        std::string const expected = place < text.size() ? text.substr(place, count) : std::string();
        std::string bytes(count, '\0');
        stream.SetPosition(static_cast<__int64>(place), FileSeek_Begin);
        DWORD read = 0;
        DWORD const error = ErrorOf([&] { read = stream.Read(bytes.data(), static_cast<DWORD>(count)); });
        EXPECT_TRUE(error == 0 || (error == ERROR_HANDLE_EOF && expected.empty())) << error;
        EXPECT_TRUE(bytes.substr(0, read) == expected) << place << ' ' << count;
    }

    ScratchFolder folder;
    std::mt19937 random;
    AsyncFile stream;
    std::string text;
    std::size_t position = 0;
    std::deque<Transfer> onTheirWay;
};

} // namespace

TEST(AsyncRounds, TenThousandEndInTheContentOfTheModel)
{
    Rounds(20240607).ExpectTheModelsContentAfter(10'000);
}
