#include <kvcore/tools/kv/Decode.h>

#include <kvcore/tools/kv/DecodingStages.h>

namespace kv::tools
{

namespace
{

constexpr int blockSize = 64 * 1024;

} // namespace

void Decode(std::vector<Stage> const & chain, SourceStream & source, OutputStream & target)
{
    // What was put on last comes off first.
    std::vector<std::unique_ptr<SourceStream>> stages;
    SourceStream * head = &source;
    std::string origin = "the input";
    for (auto stage = chain.rbegin(); stage != chain.rend(); ++stage)
    {
        stages.push_back(MakeDecodingStage(stage->kind, *head, origin));
        head = stages.back().get();
        origin = std::string("what stage ") + StageName(stage->kind) + " gave";
    }

    std::vector<char> block(blockSize);
    while (int const size = head->ReadSome(block.data(), blockSize))
    {
        target.Write(block.data(), size);
    }
}

} // namespace kv::tools
