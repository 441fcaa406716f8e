#pragma once

// Runs a program of tools/ in this process, over strings in place of the standard streams.

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::test
{

/// Delivers a text in pieces of at most `pieceSize` bytes, as a pipe does.
class TextSource : public tools::SourceStream
{
public:
    explicit TextSource(std::string content, int pieceSize = INT_MAX) : text(std::move(content)), most(pieceSize) {}

    int ReadSome(char * data, int capacity) override
    {
        std::size_t const size =
            std::min({static_cast<std::size_t>(capacity), static_cast<std::size_t>(most), text.size() - position});
        std::memcpy(data, text.data() + position, size);
        position += size;
        return static_cast<int>(size);
    }

private:
    std::string text;
    int most;
    std::size_t position = 0;
};

/// Keeps what is written.
class TextSink : public OutputStream
{
public:
    TextSink() : OutputStream(nullptr) {}

    void Write(char const * data, int size) override
    {
        text.append(data, static_cast<std::size_t>(std::max(size, 0)));
    }

    std::string text;
};

/// What a program left behind.
struct ToolResult
{
    int code;
    std::string output;
    std::string error;
};

/// Runs `program` with these arguments over these streams; `output` of the result stays empty.
inline ToolResult RunTool(
    tools::ProgramFunction program, std::vector<std::string> const & arguments, tools::SourceStream & input,
    OutputStream & output)
{
    TextSink error;
    tools::Console console{input, output, error};
    int const code = program(arguments, console);
    return {code, {}, error.text};
}

/// The same, from a text into a text.
inline ToolResult RunTool(
    tools::ProgramFunction program, std::vector<std::string> const & arguments, std::string const & input = {},
    int pieceSize = INT_MAX)
{
    TextSource source(input, pieceSize);
    TextSink sink;
    ToolResult result = RunTool(program, arguments, source, sink);
    result.output = std::move(sink.text);
    return result;
}

} // namespace kv::test
