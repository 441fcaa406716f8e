#include <kvcore/tools/kv/Encode.h>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/Crypting.h>

#include <exception>
#include <memory>

namespace kv::tools
{

namespace
{

constexpr int blockSize = 64 * 1024;

std::unique_ptr<OutputStream> MakeFilter(Stage const & stage, OutputStream & target)
{
    switch (stage.kind)
    {
    case StageKind::Deflate:
        return std::make_unique<CompressingStream>(target, stage.parameter);
    case StageKind::Crc:
        return std::make_unique<CRCOutputStream>(target);
    case StageKind::Base64:
        // The stream takes a width of 0 for one group per line, and a negative one for no line ends at all.
        return std::make_unique<Base64EncodingStream>(target, stage.parameter == 0 ? -1 : stage.parameter);
    default:
        return std::make_unique<CryptingOutputStream>(target);
    }
}

// Passes on what it gets until it is closed, and drops the rest.
class Valve : public OutputStream
{
public:
    explicit Valve(OutputStream & stream) : OutputStream(&stream), target(stream) {}

    void Write(char const * data, int size) override
    {
        if (!closed)
        {
            target.Write(data, size);
        }
    }

    void Close()
    {
        closed = true;
    }

private:
    OutputStream & target;
    bool closed = false;
};

// The filters of a chain, the head last. They have to be ended one by one: a filter writes what it holds back when it
// is destroyed, and may fail in that, which the destructors of smart pointers and containers do not allow.
class FilterChain
{
public:
    FilterChain(std::vector<Stage> const & stages, OutputStream & target) : valve(target), head(&valve)
    {
        filters.reserve(stages.size());
        for (auto stage = stages.rbegin(); stage != stages.rend(); ++stage)
        {
            filters.push_back(MakeFilter(*stage, *head));
            head = filters.back().get();
        }
    }

    FilterChain(FilterChain const &) = delete;
    FilterChain & operator=(FilterChain const &) = delete;

    // Without Finish the data is not whole, and must not look so: what the filters would write at their end is dropped.
    ~FilterChain()
    {
        valve.Close();
        try
        {
            Finish();
        }
        catch (StreamBase::Exception const &)
        {
            // Another failure is on its way; that one counts.
        }
    }

    OutputStream & Head()
    {
        return *head;
    }

    // Ends the filters from the head on, all of them, and then throws what failed first.
    void Finish()
    {
        std::exception_ptr failure;
        while (!filters.empty())
        {
            try
            {
                OutputStream const * const filter = filters.back().release();
                filters.pop_back();
                delete filter;
            }
            catch (StreamBase::Exception const &)
            {
                failure = failure ? failure : std::current_exception();
            }
        }
        if (failure)
        {
            std::rethrow_exception(failure);
        }
    }

private:
    Valve valve;
    std::vector<std::unique_ptr<OutputStream>> filters;
    OutputStream * head;
};

} // namespace

void Encode(std::vector<Stage> const & chain, SourceStream & source, OutputStream & target)
{
    FilterChain filters(chain, target);
    std::vector<char> block(blockSize);
    while (int const size = source.ReadSome(block.data(), blockSize))
    {
        filters.Head().Write(block.data(), size);
    }
    filters.Finish();
}

} // namespace kv::tools
