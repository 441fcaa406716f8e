// What every filter that reads promises, whatever it does to the bytes, and how each of them takes damaged input.

#include <support/FilterKinds.h>
#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

class InputFilters : public testing::TestWithParam<FilterKind>
{
protected:
    // Two thirds of the bytes repeat, so that the compressed form has references, too.
    InputFilters() : data(RandomBytes(120) + RandomBytes(120) + RandomBytes(60)), wire(Filtered(GetParam(), data)) {}

    std::unique_ptr<InputStream> NewFilter(InputStream & source) const
    {
        return GetParam().reader(source);
    }

    std::string data;
    std::string wire;
};

} // namespace

TEST_P(InputFilters, DoNothingForASizeBelowOne)
{
    RecordingInputStream source(wire);
    auto const filter = NewFilter(source);
    filter->Read(nullptr, 0);
    filter->Read(nullptr, -1);
    EXPECT_TRUE(source.reads.empty());
}

TEST_P(InputFilters, DeliverPiecesOfAnySize)
{
    std::string const large = RandomBytes(30000);
    std::string const largeWire = Filtered(GetParam(), large);
    for (unsigned int seed = 0; seed < 5; ++seed)
    {
        for (int const most : {5, 300, 12000})
        {
            RecordingInputStream source(largeWire);
            auto const filter = NewFilter(source);
            std::string read(large.size(), '\0');
            InRandomPieces(
                read.size(), most, seed,
                [&](std::size_t offset, int size) { filter->Read(read.data() + offset, size); });
            EXPECT_TRUE(read == large) << seed << ' ' << most;
        }
    }
}

TEST_P(InputFilters, PassOnAFailureOfAnyReadAndGoOnAfterIt)
{
    RecordingInputStream reference(wire);
    std::string whole(data.size(), '\0');
    auto const referenceFilter = NewFilter(reference);
    for (char & byte : whole)
    {
        referenceFilter->Read(&byte, 1);
    }
    ASSERT_EQ(whole, data);

    for (int call = 1; call <= static_cast<int>(reference.reads.size()); ++call)
    {
        RecordingInputStream source(wire, call);
        auto const filter = NewFilter(source);
        std::string read;
        while (read.size() < data.size())
        {
            char byte;
            std::string const failure = FailureOf([&] { filter->Read(&byte, 1); });
            if (failure == "none")
            {
                read += byte;
            }
            else
            {
                ASSERT_EQ(failure, testFailure) << call;
                ASSERT_EQ(source.failures, 1) << call;
            }
        }
        EXPECT_EQ(source.failures, 1) << call;
        EXPECT_EQ(read, data) << call;
    }
}

namespace
{

struct Outcome
{
    std::string delivered;
    std::string failure;
};

// Reads byte by byte up to the first failure or `most` bytes.
Outcome ReadAll(FilterKind const & kind, std::string const & wire, std::size_t most)
{
    MemoryInputStream source(wire);
    auto const filter = kind.reader(source);
    Outcome outcome;
    outcome.failure = FailureOf(
        [&]
        {
            while (outcome.delivered.size() < most)
            {
                char byte;
                filter->Read(&byte, 1);
                outcome.delivered += byte;
            }
        });
    return outcome;
}

} // namespace

TEST_P(InputFilters, EveryCutEndsInTheSourcesFailure)
{
    for (std::size_t size = 0; size < wire.size(); ++size)
    {
        Outcome const outcome = ReadAll(GetParam(), wire.substr(0, size), data.size());
        EXPECT_EQ(data.compare(0, outcome.delivered.size(), outcome.delivered), 0) << size;
        if (outcome.delivered.size() < data.size())
        {
            EXPECT_EQ(outcome.failure, "5: Memory block too short") << size;
        }
    }
    EXPECT_EQ(ReadAll(GetParam(), wire.substr(0, wire.size() / 2), data.size()).failure, "5: Memory block too short");
}

TEST_P(InputFilters, EveryChangedByteEndsInADocumentedFailureOrInBytes)
{
    std::string const failures[] = {
        "none",
        "2: incorrect header check",
        "2: unknown compression method",
        "2: invalid window size",
        "2: invalid block type",
        "2: invalid stored block lengths",
        "2: too many length or distance symbols",
        "2: invalid code lengths set",
        "2: invalid bit length repeat",
        "2: invalid code -- missing end-of-block",
        "2: invalid literal/lengths set",
        "2: invalid distances set",
        "2: invalid literal/length code",
        "2: invalid distance code",
        "2: invalid distance too far back",
        "2: incorrect data check",
        "2: need dictionary",
        "2: stream end",
        "3: Base64 format error",
        "4: Illegal CRC block size",
        "4: CRC checksum error",
        "5: Memory block too short",
    };
    bool const checked = GetParam().name == "CRC";
    for (std::size_t place = 0; place < wire.size(); ++place)
    {
        for (int const change : {0x01, 0x02, 0x04, 0x10, 0x40, 0x80, 0xFF})
        {
            std::string damaged = wire;
            damaged[place] = static_cast<char>(damaged[place] ^ change);
            Outcome const outcome = ReadAll(GetParam(), damaged, data.size());
            EXPECT_NE(std::find(std::begin(failures), std::end(failures), outcome.failure), std::end(failures))
                << place << ' ' << change << ' ' << outcome.failure;
            EXPECT_EQ(outcome.failure == "none", outcome.delivered.size() == data.size());
            if (checked)
            {
                EXPECT_NE(outcome.failure, "none") << place << ' ' << change;
                EXPECT_EQ(outcome.delivered, "") << place << ' ' << change;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, InputFilters, testing::ValuesIn(FilterKinds()),
    [](testing::TestParamInfo<FilterKind> const & kind) { return kind.param.name; });
