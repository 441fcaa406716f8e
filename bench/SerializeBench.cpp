// An object graph written and read back: serializing streams beside Boost.Serialization, cereal and Qt's QDataStream.
//
// The graph is a tree of clips with 100,000 occurrences of objects in it: every sixth is a clip of its own, every
// second a reference to a clip that other clips refer to as well, and every third a format that is equal to one of
// eight. All contestants keep references shared; formats repeat by value, which the peers have no form for and write in
// full.
//
// Each peer gets what suits it best: cereal tracks shared pointers and nothing else, Boost tracks plain pointers, and
// for Qt the sharing is written by hand.

#include <array>
#include <concepts>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <QByteArray>
#include <QDataStream>
#include <QHash>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/array.hpp>
#include <boost/serialization/vector.hpp>
#include <cereal/archives/binary.hpp>
#include <cereal/types/array.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/vector.hpp>

#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Jobs.h"

class BenchFormat : public KVUnknown, public ISerializable
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream >> width >> height >> rate >> depth;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << width << height << rate << depth;
    }
    short GetVersion() const override
    {
        return 1;
    }
    bool operator==(BenchFormat const & other) const
    {
        return width == other.width && height == other.height && rate == other.rate && depth == other.depth;
    }

    int width = 0;
    int height = 0;
    double rate = 0;
    short depth = 0;
};

class BenchClip : public KVUnknown, public ISerializable
{
public:
    using Format = BenchFormat;
    using Pointer = BenchClip *;

    BenchClip() = default;
    BenchClip(BenchClip const &) = delete;
    ~BenchClip() override
    {
        for (BenchClip * const child : children)
        {
            child->Release();
        }
    }

    void Read(SerializingInputStream & stream, short) override
    {
        int count;
        stream >> number >> start >> count;
        stream.Read(video);
        stream.Read(audio);
        for (BenchClip *& clip : shared)
        {
            clip = static_cast<BenchClip *>(stream.ReadRef());
        }
        children.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
        {
            children.push_back(static_cast<BenchClip *>(stream.ReadRef()));
        }
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number << start << static_cast<int>(children.size());
        stream.Write(video);
        stream.Write(audio);
        for (BenchClip const * const clip : shared)
        {
            stream.WriteRef(clip);
        }
        for (BenchClip const * const child : children)
        {
            stream.WriteRef(child);
        }
    }
    short GetVersion() const override
    {
        return 1;
    }

    int number = 0;
    double start = 0;
    BenchFormat video;
    BenchFormat audio;
    std::array<BenchClip *, 3> shared = {};
    std::vector<BenchClip *> children;
};

namespace
{

template <class Archive>
concept CerealArchive = std::derived_from<Archive, cereal::detail::OutputArchiveBase> ||
    std::derived_from<Archive, cereal::detail::InputArchiveBase>;

template <class Archive>
concept BoostArchive = requires
{
    typename Archive::is_saving;
}
&&!CerealArchive<Archive>;

struct PlainFormat
{
    int width = 0;
    int height = 0;
    double rate = 0;
    short depth = 0;

    template <CerealArchive Archive>
    void serialize(Archive & archive)
    {
        archive(width, height, rate, depth);
    }
    template <BoostArchive Archive>
    void serialize(Archive & archive, unsigned int)
    {
        archive & width & height & rate & depth;
    }
};

/// A peer's clip with shared pointers, or with plain ones and children that it owns.
template <bool counted>
struct PlainClip
{
    using Format = PlainFormat;
    using Pointer = std::conditional_t<counted, std::shared_ptr<PlainClip>, PlainClip *>;

    PlainClip() = default;
    PlainClip(PlainClip const &) = delete;
    ~PlainClip()
    {
        if constexpr (!counted)
        {
            for (PlainClip * const child : children)
            {
                delete child;
            }
        }
    }

    template <CerealArchive Archive>
    void serialize(Archive & archive)
    {
        archive(number, start, video, audio, shared, children);
    }
    template <BoostArchive Archive>
    void serialize(Archive & archive, unsigned int)
    {
        archive & number & start & video & audio & shared & children;
    }

    int number = 0;
    double start = 0;
    PlainFormat video;
    PlainFormat audio;
    std::array<Pointer, 3> shared = {};
    std::vector<Pointer> children;
};
using CountedClip = PlainClip<true>;
using RawClip = PlainClip<false>;

} // namespace

BOOST_CLASS_IMPLEMENTATION(PlainFormat, boost::serialization::object_serializable)
BOOST_CLASS_TRACKING(PlainFormat, boost::serialization::track_never)
BOOST_CLASS_IMPLEMENTATION(RawClip, boost::serialization::object_serializable)

namespace
{

constexpr int clipCount = 16667;
constexpr int formatCount = 8;

template <class Format>
Format MakeFormat(int number)
{
    Format format;
    format.width = 720 + 16 * (number % formatCount);
    format.height = 576;
    format.rate = 25;
    format.depth = 24;
    return format;
}

template <class Clip>
typename Clip::Pointer NewClip()
{
    if constexpr (std::is_same_v<Clip, CountedClip>)
    {
        return std::make_shared<Clip>();
    }
    else
    {
        return new Clip;
    }
}

/// The same tree for every contestant, made in the order in which it is written. A clip refers to clips that stand
/// before it and have no children, so no pointers run in a circle.
template <class Clip>
class Graph
{
public:
    typename Clip::Pointer Make()
    {
        return Make(clipCount);
    }

private:
    typename Clip::Pointer Make(int size)
    {
        typename Clip::Pointer clip = NewClip<Clip>();
        clip->number = number++;
        clip->start = clip->number * 0.04;
        clip->video = MakeFormat<typename Clip::Format>(static_cast<int>(random() % formatCount));
        clip->audio = MakeFormat<typename Clip::Format>(static_cast<int>(random() % formatCount));
        for (auto & pointer : clip->shared)
        {
            pointer = leaves.empty() ? nullptr : leaves[random() % leaves.size()];
        }
        int left = size - 1;
        for (int branches = 4; left > 0; --branches)
        {
            int const part = (left + branches - 1) / branches;
            clip->children.push_back(Make(part));
            left -= part;
        }
        if (size == 1)
        {
            leaves.push_back(clip);
        }
        return clip;
    }

    std::mt19937_64 random = bench::Random();
    std::vector<typename Clip::Pointer> leaves;
    int number = 0;
};

/// A number that tells two graphs apart.
template <class Pointer>
std::uint64_t Sum(Pointer const & clip)
{
    auto const mix = [](std::uint64_t sum, double value) { return sum * 31 + static_cast<std::uint64_t>(value * 100); };
    std::uint64_t sum = mix(static_cast<std::uint64_t>(clip->number), clip->start);
    sum = mix(mix(sum, clip->video.width), clip->audio.width);
    for (auto const & shared : clip->shared)
    {
        sum = mix(sum, shared == nullptr ? -1 : shared->number);
    }
    for (auto const & child : clip->children)
    {
        sum = sum * 31 + Sum(child);
    }
    return sum;
}

/// How a contestant writes, reads and frees a graph.
struct Ours
{
    using Clip = BenchClip;

    Ours()
    {
        RegisterType<BenchClip>(factory);
        RegisterType<ValueClassMethods<BenchFormat>>(factory);
    }
    std::string Write(BenchClip * clip)
    {
        MemoryOutputStream memory;
        SerializingOutputStream stream(factory, memory);
        stream.WriteRef(clip);
        return memory.GetContent();
    }
    BenchClip * Read(std::string const & bytes)
    {
        MemoryInputStream memory(bytes);
        SerializingInputStream stream(factory, memory);
        return static_cast<BenchClip *>(stream.ReadRef());
    }
    static void Free(BenchClip * clip)
    {
        clip->Release();
    }

    ObjectFactory factory;
};

struct Boost
{
    using Clip = RawClip;

    std::string Write(RawClip * const & clip)
    {
        std::ostringstream target;
        boost::archive::binary_oarchive archive(target, boost::archive::no_header);
        archive << clip;
        return target.str();
    }
    RawClip * Read(std::string const & bytes)
    {
        std::istringstream source(bytes);
        boost::archive::binary_iarchive archive(source, boost::archive::no_header);
        RawClip * clip = nullptr;
        archive >> clip;
        return clip;
    }
    static void Free(RawClip * clip)
    {
        delete clip;
    }
};

struct Cereal
{
    using Clip = CountedClip;

    std::string Write(std::shared_ptr<CountedClip> const & clip)
    {
        std::ostringstream target;
        cereal::BinaryOutputArchive archive(target);
        archive(clip);
        return target.str();
    }
    std::shared_ptr<CountedClip> Read(std::string const & bytes)
    {
        std::istringstream source(bytes);
        cereal::BinaryInputArchive archive(source);
        std::shared_ptr<CountedClip> clip;
        archive(clip);
        return clip;
    }
    static void Free(std::shared_ptr<CountedClip> & clip)
    {
        clip.reset();
    }
};

/// A pointer is its number, and the first time its clip follows; 0 is null.
struct Qt
{
    using Clip = RawClip;

    QByteArray Write(RawClip const * clip)
    {
        QByteArray bytes;
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        stream.setByteOrder(QDataStream::LittleEndian);
        QHash<RawClip const *, qint32> numbers;
        WritePointer(stream, numbers, clip);
        return bytes;
    }
    RawClip * Read(QByteArray const & bytes)
    {
        QDataStream stream(bytes);
        stream.setByteOrder(QDataStream::LittleEndian);
        std::vector<RawClip *> clips;
        return ReadPointer(stream, clips);
    }
    static void Free(RawClip * clip)
    {
        delete clip;
    }

private:
    static void Write(QDataStream & stream, PlainFormat const & format)
    {
        stream << format.width << format.height << format.rate << format.depth;
    }
    static void Read(QDataStream & stream, PlainFormat & format)
    {
        stream >> format.width >> format.height >> format.rate >> format.depth;
    }
    static void WritePointer(QDataStream & stream, QHash<RawClip const *, qint32> & numbers, RawClip const * clip)
    {
        if (clip == nullptr)
        {
            stream << qint32(0);
            return;
        }
        auto const known = numbers.constFind(clip);
        if (known != numbers.constEnd())
        {
            stream << *known;
            return;
        }
        numbers.insert(clip, numbers.size() + 1);
        stream << qint32(numbers.size()) << clip->number << clip->start << qint32(clip->children.size());
        Write(stream, clip->video);
        Write(stream, clip->audio);
        for (RawClip const * const shared : clip->shared)
        {
            WritePointer(stream, numbers, shared);
        }
        for (RawClip const * const child : clip->children)
        {
            WritePointer(stream, numbers, child);
        }
    }
    static RawClip * ReadPointer(QDataStream & stream, std::vector<RawClip *> & clips)
    {
        qint32 number;
        stream >> number;
        if (number == 0)
        {
            return nullptr;
        }
        if (static_cast<std::size_t>(number) <= clips.size())
        {
            return clips[static_cast<std::size_t>(number) - 1];
        }
        auto * const clip = new RawClip;
        clips.push_back(clip);
        qint32 count;
        stream >> clip->number >> clip->start >> count;
        Read(stream, clip->video);
        Read(stream, clip->audio);
        for (RawClip *& shared : clip->shared)
        {
            shared = ReadPointer(stream, clips);
        }
        clip->children.reserve(static_cast<std::size_t>(count));
        for (qint32 i = 0; i < count; ++i)
        {
            clip->children.push_back(ReadPointer(stream, clips));
        }
        return clip;
    }
};

/// The job, and its halves. Returns the sum of the graph as it was read.
template <class Contestant>
std::uint64_t AddContestant(std::string const & name)
{
    auto const contestant = std::make_shared<Contestant>();
    auto const graph = std::make_shared<typename Contestant::Clip::Pointer>(Graph<typename Contestant::Clip>().Make());
    auto const bytes = contestant->Write(*graph);
    std::size_t const size = static_cast<std::size_t>(bytes.size());
    auto read = contestant->Read(bytes);
    std::uint64_t const sum = Sum(read);
    bench::Require(sum == Sum(*graph), "Serialize");
    Contestant::Free(read);

    bench::Add(
        "Serialize/write-and-read/" + name, size,
        [contestant, graph]
        {
            auto copy = contestant->Read(contestant->Write(*graph));
            benchmark::DoNotOptimize(copy);
            Contestant::Free(copy);
        });
    bench::Add(
        "SerializeHalf/write/" + name, size,
        [contestant, graph] { benchmark::DoNotOptimize(contestant->Write(*graph)); });
    bench::Add(
        "SerializeHalf/read/" + name, size,
        [contestant, bytes]
        {
            auto copy = contestant->Read(bytes);
            benchmark::DoNotOptimize(copy);
            Contestant::Free(copy);
        });
    return sum;
}

void AddJobs()
{
    std::uint64_t const sum = AddContestant<Ours>("ours");
    bool const agree = AddContestant<Boost>("boost") == sum && AddContestant<Cereal>("cereal") == sum &&
        AddContestant<Qt>("qt") == sum;
    bench::Require(agree, "Serialize");
}

bench::Source const source(AddJobs);

} // namespace
