#pragma once

// The filter streams as one list, for the tests of what all of them promise.

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <kvcore/streams/Base64.h>
#include <kvcore/streams/CRC.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/Crypting.h>
#include <kvcore/streams/MemoryStreams.h>

namespace kv::test
{

struct FilterKind
{
    /// What a failed Write of at most 1,022 bytes has taken of its bytes.
    enum class AfterFailure
    {
        NothingTaken, // repeat it
        GroupsTaken,  // repeat it from the group of three bytes that was refused; after a refused line feed, go on
        AllTaken,     // go on
        Lost          // the bytes that were refused are gone
    };

    std::string name;
    std::function<std::unique_ptr<OutputStream>(OutputStream &)> writer;
    std::function<std::unique_ptr<InputStream>(InputStream &)> reader;
    AfterFailure afterFailure;
    bool holdsBytesBack;

    /// The bytes to send in a test that lets each write downstream fail once: fewer where each is a few bytes long.
    std::size_t SizeForFailures() const
    {
        return afterFailure == AfterFailure::GroupsTaken ? 2050 : 20500;
    }

    friend std::ostream & operator<<(std::ostream & stream, FilterKind const & kind)
    {
        return stream << kind.name;
    }
};

template <typename Filter, typename... Arguments>
std::function<std::unique_ptr<OutputStream>(OutputStream &)> Writer(Arguments... arguments)
{
    return [arguments...](OutputStream & target) { return std::make_unique<Filter>(target, arguments...); };
}

template <typename Filter>
std::function<std::unique_ptr<InputStream>(InputStream &)> Reader()
{
    return [](InputStream & source) { return std::make_unique<Filter>(source); };
}

inline std::vector<FilterKind> FilterKinds()
{
    using After = FilterKind::AfterFailure;
    return {
        {"Base64", Writer<Base64EncodingStream>(-1), Reader<Base64DecodingStream>(), After::GroupsTaken, true},
        {"Base64Lines", Writer<Base64EncodingStream>(76), Reader<Base64DecodingStream>(), After::GroupsTaken, true},
        {"Base64Groups", Writer<Base64EncodingStream>(4), Reader<Base64DecodingStream>(), After::GroupsTaken, true},
        {"CRC", Writer<CRCOutputStream>(), Reader<CRCInputStream>(), After::AllTaken, true},
        {"Compressing", Writer<CompressingStream>(-1), Reader<DecompressingStream>(), After::Lost, true},
        {"Storing", Writer<CompressingStream>(0), Reader<DecompressingStream>(), After::Lost, true},
        {"Crypting", Writer<CryptingOutputStream>(), Reader<CryptingInputStream>(), After::NothingTaken, false},
    };
}

/// `data` as one write makes it come out of the filter, the destructor's bytes included.
inline std::string Filtered(FilterKind const & kind, std::string data)
{
    MemoryOutputStream target;
    kind.writer(target)->Write(data.data(), static_cast<int>(data.size()));
    return target.GetContent();
}

} // namespace kv::test
