// What every filter that writes promises, whatever it does to the bytes.

#include <random>
#include <stdexcept>

#include <support/FilterKinds.h>
#include <support/StreamFailure.h>
#include <support/TestBytes.h>
#include <support/TestStreams.h>

using namespace kv::test;

namespace
{

class OutputFilters : public testing::TestWithParam<FilterKind>
{
protected:
    using After = FilterKind::AfterFailure;

    std::unique_ptr<OutputStream> NewFilter(OutputStream & target) const
    {
        return GetParam().writer(target);
    }

    std::string ReadBack(std::string const & wire, std::size_t size) const
    {
        MemoryInputStream source(wire);
        std::string data(size, '\0');
        GetParam().reader(source)->Read(data.data(), static_cast<int>(size));
        return data;
    }
};

// Deletes the stream in a way that lets its destructor's failure out.
void Destroy(std::unique_ptr<OutputStream> & stream)
{
    delete stream.release();
}

} // namespace

TEST_P(OutputFilters, WriteNothingWithoutData)
{
    RecordingOutputStream target;
    auto filter = NewFilter(target);
    filter->Flush();
    Destroy(filter);
    EXPECT_TRUE(target.writes.empty());
}

TEST_P(OutputFilters, DoNothingForASizeBelowOne)
{
    std::string data = "abcd";
    RecordingOutputStream target;
    auto filter = NewFilter(target);
    auto const writeNothing = [&]
    {
        std::size_t const before = target.writes.size();
        filter->Write(data.data(), 0);
        filter->Write(data.data(), -1);
        EXPECT_EQ(target.writes.size(), before);
    };
    writeNothing();
    for (char & byte : data)
    {
        filter->Write(&byte, 1);
        writeNothing();
    }
    Destroy(filter);
    EXPECT_EQ(ReadBack(target.Content(), 4), "abcd");
}

TEST_P(OutputFilters, TakePiecesOfAnySizeWithFlushesAmongThem)
{
    std::string data = RandomBytes(40000);
    for (unsigned int seed = 0; seed < 6; ++seed)
    {
        for (int const most : {1, 4, 200, 9000})
        {
            std::mt19937 random(seed);
            std::size_t const size = most < 10 ? 500 : data.size();
            RecordingOutputStream target;
            auto filter = NewFilter(target);
            InRandomPieces(
                size, most, seed,
                [&](std::size_t offset, int pieceSize)
                {
                    filter->Write(data.data() + offset, pieceSize);
                    if (random() % 8 == 0)
                    {
                        filter->Flush();
                    }
                });
            Destroy(filter);
            ASSERT_TRUE(ReadBack(target.Content(), size) == data.substr(0, size)) << seed << ' ' << most;
        }
    }
}

TEST_P(OutputFilters, GiveTheSameBytesForAnySplit)
{
    std::string data = RandomBytes(20000);
    std::string const expected = Filtered(GetParam(), data);
    for (unsigned int seed = 0; seed < 6; ++seed)
    {
        RecordingOutputStream target;
        auto filter = NewFilter(target);
        InRandomPieces(
            data.size(), 7000, seed, [&](std::size_t offset, int size) { filter->Write(data.data() + offset, size); });
        Destroy(filter);
        EXPECT_TRUE(target.Content() == expected) << seed;
    }
}

TEST_P(OutputFilters, ASecondFlushAddsNothing)
{
    std::string data = RandomBytes(100);
    RecordingOutputStream target;
    auto const filter = NewFilter(target);
    filter->Write(data.data(), 100);
    target.Flush();
    std::size_t const writes = target.writes.size();
    EXPECT_GT(writes, 0u);
    target.Flush();
    filter->Flush();
    EXPECT_EQ(target.writes.size(), writes);
}

TEST_P(OutputFilters, LeaveTheCallersBytesAsTheyWere)
{
    std::string data = RandomBytes(5000);
    std::string const before = data;
    for (int const failingCall : {0, 1})
    {
        FailingOutputStream target(failingCall);
        auto const filter = NewFilter(target);
        FailureOf([&] { filter->Write(data.data(), static_cast<int>(data.size())); });
        EXPECT_TRUE(data == before) << failingCall;
    }
}

namespace
{

// A program over a filter: pieces of data, then a flush, several times, and the end. Blocks of the CRC stream end
// where pieces end; groups of Base64 are sent byte by byte, so that a Write completes one at most. What fails is noted,
// and tried again where the filter promises that nothing of it was done.
struct Program
{
    Program(FilterKind const & kind, RecordingOutputStream & target, std::string & data)
    {
        auto filter = kind.writer(target);
        int const piece = kind.afterFailure == FilterKind::AfterFailure::GroupsTaken ? 1 : 1022;
        for (int offset = 0; offset < static_cast<int>(data.size()); offset += piece)
        {
            int const size = std::min(piece, static_cast<int>(data.size()) - offset);
            auto const write = [&] { filter->Write(data.data() + offset, size); };
            if (Failed(write) && TookNothing(kind, target))
            {
                write();
            }
            if (offset / piece % 7 == 6 && Failed([&] { filter->Flush(); }) &&
                kind.afterFailure != FilterKind::AfterFailure::Lost)
            {
                filter->Flush();
            }
        }
        failedAtEnd = Failed([&] { Destroy(filter); });
    }

    static bool TookNothing(FilterKind const & kind, RecordingOutputStream const & target)
    {
        using After = FilterKind::AfterFailure;
        return kind.afterFailure == After::NothingTaken ||
            (kind.afterFailure == After::GroupsTaken &&
             dynamic_cast<FailingOutputStream const &>(target).refused.size() == 4);
    }

    template <typename Action>
    bool Failed(Action action)
    {
        std::string const failure = FailureOf(action);
        if (failure == "none")
        {
            return false;
        }
        failures.push_back(failure);
        return true;
    }

    std::vector<std::string> failures;
    bool failedAtEnd;
};

} // namespace

TEST_P(OutputFilters, PassOnAFailureOfAnyWriteAndWriteNothingTwice)
{
    std::string data = RandomBytes(GetParam().SizeForFailures());
    RecordingOutputStream reference;
    EXPECT_TRUE(Program(GetParam(), reference, data).failures.empty());
    std::string const expected = reference.Content();

    for (int call = 1; call <= static_cast<int>(reference.writes.size()); ++call)
    {
        SCOPED_TRACE(call);
        FailingOutputStream target(call);
        Program const run(GetParam(), target, data);
        EXPECT_EQ(run.failures, std::vector<std::string>{testFailure});
        EXPECT_EQ(target.failures, 1);
        EXPECT_EQ(target.Upstream(), nullptr);
        std::string const content = target.Content();
        if (GetParam().afterFailure == After::Lost)
        {
            // Everything up to the failure arrived, and what was refused never comes again.
            for (int i = 0; i < call - 1; ++i)
            {
                ASSERT_EQ(target.writes[std::size_t(i)], reference.writes[std::size_t(i)]);
            }
            EXPECT_TRUE(target.refused.size() < 16 || content.find(target.refused) == std::string::npos);
        }
        else if (run.failedAtEnd)
        {
            EXPECT_EQ(expected.compare(0, content.size(), content), 0);
        }
        else
        {
            EXPECT_TRUE(content == expected);
        }
    }
}

TEST_P(OutputFilters, PassOnEveryFailureOfATargetThatKeepsFailing)
{
    std::string data = RandomBytes(GetParam().SizeForFailures());
    int const size = static_cast<int>(data.size());
    RecordingOutputStream reference;
    Program(GetParam(), reference, data);

    for (int call = 1; call <= static_cast<int>(reference.writes.size()); ++call)
    {
        SCOPED_TRACE(call);
        FailingOutputStream target(call, FailingOutputStream::Mode::Always);
        auto filter = NewFilter(target);
        std::vector<std::string> failures;
        for (int offset = 0; offset < size; offset += size / 41)
        {
            failures.push_back(FailureOf([&] { filter->Write(data.data() + offset, size / 41); }));
            if (offset / (size / 41) % 6 == 5)
            {
                failures.push_back(FailureOf([&] { filter->Flush(); }));
            }
        }
        failures.push_back(FailureOf([&] { Destroy(filter); }));
        for (std::string const & failure : failures)
        {
            // A flush of nothing but what zlib has given away already is zlib's own failure.
            EXPECT_TRUE(failure == "none" || failure == testFailure || failure == "2: buffer error") << failure;
        }
        std::string const content = target.Content();
        EXPECT_EQ(target.writes.size(), static_cast<std::size_t>(std::min(call - 1, target.calls)));
        EXPECT_EQ(target.Upstream(), nullptr);
    }
}

TEST_P(OutputFilters, ThrowTheFailureOfTheLastWriteFromTheirDestructor)
{
    FailingOutputStream target(1, FailingOutputStream::Mode::Always);
    auto filter = NewFilter(target);
    std::string data = "ab";
    FailureOf([&] { filter->Write(data.data(), 2); }); // zlib's header may come out at once
    EXPECT_EQ(FailureOf([&] { Destroy(filter); }), GetParam().holdsBytesBack ? testFailure : "none");
    EXPECT_EQ(target.Upstream(), nullptr);
}

TEST_P(OutputFilters, KeepQuietInTheirDestructorWhileAnotherFailureIsOnItsWay)
{
    FailingOutputStream target(1, FailingOutputStream::Mode::Always);
    std::string arrived;
    try
    {
        auto const filter = NewFilter(target);
        std::string data = "ab";
        FailureOf([&] { filter->Write(data.data(), 2); });
        throw std::runtime_error("first");
    }
    catch (std::runtime_error const & failure)
    {
        arrived = failure.what();
    }
    EXPECT_EQ(arrived, "first");
    EXPECT_GE(target.calls, 1);
    EXPECT_EQ(target.Upstream(), nullptr);
}

TEST_P(OutputFilters, WriteTheirLastBytesWhileAFailureIsOnItsWay)
{
    RecordingOutputStream target;
    try
    {
        auto const filter = NewFilter(target);
        std::string data = "ab";
        filter->Write(data.data(), 2);
        throw std::runtime_error("first");
    }
    catch (std::runtime_error const &)
    {
    }
    EXPECT_EQ(ReadBack(target.Content(), 2), "ab");
}

TEST_P(OutputFilters, ThrowAsEverInsideADestructorThatAFailureRuns)
{
    struct Saver
    {
        FilterKind const & kind;
        std::string & failure;

        ~Saver()
        {
            FailingOutputStream target(1, FailingOutputStream::Mode::Always);
            auto filter = kind.writer(target);
            std::string data = "ab";
            FailureOf([&] { filter->Write(data.data(), 2); });
            failure = FailureOf([&] { Destroy(filter); });
        }
    };
    std::string failure;
    try
    {
        Saver const saver{GetParam(), failure};
        throw std::runtime_error("first");
    }
    catch (std::runtime_error const &)
    {
    }
    EXPECT_EQ(failure, GetParam().holdsBytesBack ? testFailure : "none");
}

TEST_P(OutputFilters, DropTheirLastBytesIfTheTargetWentFirst)
{
    auto target = std::make_unique<RecordingOutputStream>();
    auto filter = NewFilter(*target);
    std::string data = "ab";
    filter->Write(data.data(), 2);
    target.reset();
    EXPECT_EQ(FailureOf([&] { Destroy(filter); }), "none");
}

TEST_P(OutputFilters, WorkOnTopOfEachOther)
{
    std::string data = RandomBytes(10000);
    for (FilterKind const & second : FilterKinds())
    {
        SCOPED_TRACE(second.name);
        MemoryOutputStream memory;
        {
            auto const lower = second.writer(memory);
            auto const upper = NewFilter(*lower);
            upper->Write(data.data(), 6000);
            memory.Flush();
            upper->Write(data.data() + 6000, 4000);
        }
        std::string const content = memory.GetContent();
        MemoryInputStream source(content);
        auto const lower = second.reader(source);
        auto const upper = GetParam().reader(*lower);
        std::string read(data.size(), '\0');
        upper->Read(read.data(), static_cast<int>(read.size()));
        EXPECT_TRUE(read == data);
    }
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, OutputFilters, testing::ValuesIn(FilterKinds()),
    [](testing::TestParamInfo<FilterKind> const & kind) { return kind.param.name; });
