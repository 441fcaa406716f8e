// Chains of decoding stages over any bytes, and over bytes that the same chain has encoded.
//
// What must hold for every input: a chain ends at the data's end or with damage, whatever the pieces are in which the
// bytes come, and a single stage at the same place; and what a chain encodes it decodes.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <kvcore/tools/kv/Chain.h>
#include <kvcore/tools/kv/Decode.h>
#include <kvcore/tools/kv/Encode.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/support/SourceStream.h>

#include "Fuzz.h"

using namespace kv::tools;

namespace
{

class Pieces : public SourceStream
{
public:
    Pieces(std::string const & bytes, std::size_t pieceSize) : text(bytes), most(pieceSize) {}

    int ReadSome(char * data, int capacity) override
    {
        std::size_t const size = std::min({static_cast<std::size_t>(capacity), most, text.size() - position});
        std::memcpy(data, text.data() + position, size);
        position += size;
        return static_cast<int>(size);
    }

private:
    std::string const & text;
    std::size_t const most;
    std::size_t position = 0;
};

/// Stands for a full disk. Compressed bytes may be a thousand times as many, for each stage.
struct Full
{
};

class Bounded : public OutputStream
{
public:
    Bounded() : OutputStream(nullptr) {}

    void Write(char const * data, int size) override
    {
        constexpr std::size_t most = 256 * 1024;
        text.append(data, static_cast<std::size_t>(std::max(size, 0)));
        if (text.size() > most)
        {
            throw Full();
        }
    }

    std::string text;
};

struct Outcome
{
    std::string decoded;
    std::string damage; ///< the failure and its place; empty for none
    bool isFull = false;
};

Outcome Decoded(std::vector<Stage> const & chain, std::string const & bytes, std::size_t pieceSize)
{
    Pieces source(bytes, pieceSize);
    Bounded target;
    Outcome outcome;
    try
    {
        Decode(chain, source, target);
    }
    catch (DamagedData const & damage)
    {
        fuzz::Check(damage.code >= 2 && damage.code <= 5 && !damage.text.empty(), "an undocumented failure");
        outcome.damage = damage.text.Utf8() + " (" + damage.place + ")";
    }
    catch (Full const &)
    {
        outcome.isFull = true;
    }
    outcome.decoded = target.text;
    return outcome;
}

/// Of several damages, that of another stage may be met first: how far a stage looks ahead is up to the pieces.
void CheckSame(std::vector<Stage> const & chain, Outcome const & whole, Outcome const & inPieces)
{
    fuzz::Check(whole.damage.empty() == inPieces.damage.empty(), "whether there is damage depends on the pieces");
    fuzz::Check(chain.size() > 1 || whole.damage == inPieces.damage, "the damage depends on the pieces");
    std::size_t const common = std::min(whole.decoded.size(), inPieces.decoded.size());
    fuzz::Check(whole.decoded.compare(0, common, inPieces.decoded, 0, common) == 0, "the data depends on the pieces");
    fuzz::Check(
        (chain.size() > 1 && !whole.damage.empty()) || whole.decoded.size() == inPieces.decoded.size(),
        "how much decodes depends on the pieces");
}

std::vector<Stage> ChainOf(fuzz::Input & input)
{
    constexpr StageKind kinds[] = {StageKind::Deflate, StageKind::Crc, StageKind::Base64, StageKind::Crypt};
    std::vector<Stage> chain(input.Byte() % 4 + 1u);
    for (Stage & stage : chain)
    {
        unsigned const choice = input.Byte();
        stage.kind = kinds[choice % 4];
        stage.parameter =
            stage.kind == StageKind::Deflate ? static_cast<int>(choice / 4 % 11) - 1 : static_cast<int>(choice / 4);
    }
    return chain;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::vector<Stage> const chain = ChainOf(input);
    std::size_t const pieceSize = input.Byte() % 16 + std::size_t(1);
    bool const isEncoded = input.Byte() % 4 == 0;
    std::string bytes = input.Rest();
    if (isEncoded)
    {
        std::string const original = bytes;
        Pieces source(original, original.size() + 1);
        Bounded encoded;
        Encode(chain, source, encoded);
        bytes = encoded.text;
        Outcome const back = Decoded(chain, bytes, bytes.size() + 1);
        fuzz::Check(back.damage.empty() && back.decoded == original, "what was encoded does not decode");
    }
    Outcome const whole = Decoded(chain, bytes, bytes.size() + 1);
    Outcome const inPieces = Decoded(chain, bytes, pieceSize);
    if (!whole.isFull && !inPieces.isFull)
    {
        CheckSame(chain, whole, inPieces);
    }
    return 0;
}
