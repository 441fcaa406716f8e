#include <kvcore/tools/kv/DecodingStages.h>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/InflateScout.h>
#include <kvcore/tools/kv/Window.h>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/Crypting.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace kv::tools
{

namespace
{

constexpr int zlibFailed = 2;
constexpr int malformed = 3;
constexpr int dataRanOut = 5;

// How a stage says where it met damage.
class Place
{
public:
    Place(StageKind stageKind, std::string const & whose) : kind(stageKind), origin(whose) {}

    [[noreturn]] void Throw(StreamBase::Exception const & cause, char const * where, std::uint64_t offset) const
    {
        throw DamagedData(
            cause,
            std::string("stage ") + StageName(kind) + ", " + where + " byte " + std::to_string(offset) + " of " +
                origin);
    }

private:
    StageKind kind;
    std::string origin;
};

// Reads from the library's stream and returns `size`, or what `judge` makes of a failure. Failures of the system and
// damage in the stages below have been judged already.
template <class Judge>
int ReadOrJudge(InputStream & decoder, char * data, int size, Judge judge)
{
    try
    {
        decoder.Read(data, size);
        return size;
    }
    catch (DamagedData const &)
    {
        throw;
    }
    catch (IoFailure const &)
    {
        throw;
    }
    catch (StreamBase::Exception const & failure)
    {
        return judge(failure);
    }
}

int Asked(std::size_t available, int capacity)
{
    return static_cast<int>(std::clamp<std::size_t>(available, 1, static_cast<std::size_t>(capacity)));
}

// Base64: a boundary is wherever the number of significant characters is a multiple of four.

enum class CharacterClass : unsigned char
{
    Illegal,
    Blank,
    Padding,
    Value,
};

// A table and not comparisons: on text as random as this, a processor guesses the outcome of comparisons badly.
constexpr std::array<CharacterClass, 256> MakeClassTable()
{
    std::array<CharacterClass, 256> table = {};
    for (char const c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"))
    {
        table[static_cast<unsigned char>(c)] = CharacterClass::Value;
    }
    for (char const c : std::string_view(" \t\n\r"))
    {
        table[static_cast<unsigned char>(c)] = CharacterClass::Blank;
    }
    table['='] = CharacterClass::Padding;
    return table;
}

constexpr std::array<CharacterClass, 256> classTable = MakeClassTable();

CharacterClass ClassOf(char c)
{
    return classTable[static_cast<unsigned char>(c)];
}

// Counts the significant characters that the decoder takes.
class GroupCountingWindow : public Window
{
public:
    using Window::Window;

    void Read(char * data, int size) override
    {
        Window::Read(data, size);
        for (int i = 0; i < size; ++i)
        {
            significant += ClassOf(data[i]) == CharacterClass::Blank ? 0 : 1;
        }
    }

    [[nodiscard]] bool AtGroup() const
    {
        return significant % 4 == 0;
    }

private:
    unsigned significant = 0;
};

class Base64Stage : public SourceStream
{
public:
    Base64Stage(SourceStream & below, std::string const & origin)
        : place(StageKind::Base64, origin), window(below), decoder(window)
    {
    }

    int ReadSome(char * data, int capacity) override
    {
        std::size_t available = AvailableBytes(static_cast<std::size_t>(capacity));
        if (available == 0 && window.FillMore())
        {
            available = AvailableBytes(static_cast<std::size_t>(capacity));
        }

        int const size = Asked(available, capacity);
        return ReadOrJudge(
            decoder, data, size,
            [&](StreamBase::Exception const & failure)
            {
                if (failure.code != dataRanOut)
                {
                    place.Throw(failure, "at", window.Offset() - 1);
                }
                if (!window.AtGroup())
                {
                    place.Throw(failure, "inside the group of characters that ends at", window.Offset());
                }
                return 0;
            });
    }

private:
    // What the complete groups within sight decode to, up to about `limit` bytes. The decoder may have up to two bytes
    // more at hand; asking for fewer than there are is always safe.
    [[nodiscard]] std::size_t AvailableBytes(std::size_t limit) const
    {
        std::string_view const text = window.Ahead();
        std::size_t bytes = 0;
        CharacterClass group[4];
        std::size_t filled = 0;
        for (std::size_t i = 0; i < text.size() && bytes < limit; ++i)
        {
            CharacterClass const characterClass = ClassOf(text[i]);
            if (characterClass == CharacterClass::Illegal)
            {
                break;
            }
            group[filled] = characterClass;
            filled += characterClass == CharacterClass::Blank ? 0 : 1;
            if (filled == 4)
            {
                filled = 0;
                bytes += BytesOfGroup(group);
            }
        }
        return bytes;
    }

    static std::size_t BytesOfGroup(CharacterClass const (&group)[4])
    {
        if (group[0] == CharacterClass::Padding || group[1] == CharacterClass::Padding)
        {
            return 0;
        }
        return group[2] == CharacterClass::Padding ? 1 : group[3] == CharacterClass::Padding ? 2 : 3;
    }

    Place place;
    GroupCountingWindow window;
    Base64DecodingStream decoder;
};

// CRC: a boundary is wherever a block ends.

class CrcStage : public SourceStream
{
public:
    CrcStage(SourceStream & below, std::string const & origin)
        : place(StageKind::Crc, origin), window(below), decoder(window)
    {
    }

    int ReadSome(char * data, int capacity) override
    {
        if (available == 0)
        {
            if (!window.Fill(1))
            {
                return 0;
            }
            blockOffset = window.Offset();
            available = BlockLength();
        }

        int const size = ReadOrJudge(
            decoder, data, Asked(available, capacity),
            [&](StreamBase::Exception const & failure) -> int
            { place.Throw(failure, "in the block at", blockOffset); });
        available -= static_cast<std::size_t>(size);
        return size;
    }

private:
    // The length that the next block states, or 1 for one that the decoder is going to refuse.
    [[nodiscard]] std::size_t BlockLength()
    {
        constexpr std::uint32_t maximum = 4088;
        std::uint32_t length = 0;
        if (!window.Fill(sizeof length))
        {
            return 1;
        }
        std::memcpy(&length, window.Ahead().data(), sizeof length);
        return length >= 1 && length <= maximum ? length : 1;
    }

    Place place;
    Window window;
    CRCInputStream decoder;
    std::size_t available = 0; // bytes of the block at hand that were not delivered yet
    std::uint64_t blockOffset = 0;
};

// Crypt: a boundary is everywhere.

class CryptStage : public SourceStream
{
public:
    explicit CryptStage(SourceStream & below) : window(below), decoder(window) {}

    int ReadSome(char * data, int capacity) override
    {
        if (!window.Fill(1))
        {
            return 0;
        }
        int const size = Asked(window.Ahead().size(), capacity);
        decoder.Read(data, size);
        return size;
    }

private:
    Window window;
    CryptingInputStream decoder;
};

// Deflate: the only boundary is the end of the compressed stream, behind its check value.

class DeflateStage : public SourceStream
{
public:
    DeflateStage(SourceStream & below, std::string const & origin)
        : place(StageKind::Deflate, origin), window(below), decoder(window)
    {
    }

    int ReadSome(char * data, int capacity) override
    {
        // No data at all compresses to no bytes at all.
        if (finished || (window.Offset() == 0 && !window.Fill(1)))
        {
            return 0;
        }
        int const asked = Asked(window.AvailableBytes(), capacity);
        int const size = ReadOrJudge(
            decoder, data, asked, [&](StreamBase::Exception const & failure) { return FinishOrThrow(failure); });
        window.Delivered(static_cast<std::size_t>(size));
        return size;
    }

private:
    // The stream calls its end a failure, too. By then it has read the check value and found it right.
    int FinishOrThrow(StreamBase::Exception const & failure)
    {
        if (failure.code != zlibFailed || !window.Ended())
        {
            place.Throw(failure, "at", window.Offset());
        }
        finished = true;
        if (window.Fill(1))
        {
            place.Throw(
                {malformed, String(TEXT("Data goes on behind the end of the compressed stream"))}, "at",
                window.Offset());
        }
        return 0;
    }

    Place place;
    ScoutedWindow window;
    DecompressingStream decoder;
    bool finished = false;
};

} // namespace

std::unique_ptr<SourceStream> MakeDecodingStage(StageKind kind, SourceStream & below, std::string const & origin)
{
    switch (kind)
    {
    case StageKind::Deflate:
        return std::make_unique<DeflateStage>(below, origin);
    case StageKind::Crc:
        return std::make_unique<CrcStage>(below, origin);
    case StageKind::Base64:
        return std::make_unique<Base64Stage>(below, origin);
    default:
        return std::make_unique<CryptStage>(below);
    }
}

} // namespace kv::tools
