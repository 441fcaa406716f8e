#pragma once

#include <kvcore/tools/support/SourceStream.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace kv::tools
{

/// Stands between a decoding stage of the library and what it reads from, and lets the tool look at the bytes that the
/// stage will read next: how a tool that does not know how much there is finds out what may be asked for. Memory is
/// fixed.
class Window : public InputStream
{
public:
    /// `below` must live longer.
    explicit Window(SourceStream & below);

    /// Delivers to the stage. Throws code 5 "Unexpected end of file" if the data ends before.
    void Read(char * data, int size) override
    {
        // Most streams read byte by byte.
        if (size == 1 && begin != end)
        {
            *data = buffer[begin++];
            return;
        }
        ReadPieces(data, size);
    }

    /// Makes at least `count` bytes visible (at most `capacity`); false if the data ends before.
    [[nodiscard]] bool Fill(std::size_t count);

    /// Makes more bytes visible than there are; false at the end of the data, and when the window is full.
    [[nodiscard]] bool FillMore();

    /// The bytes that `Read` delivers next, as far as they are visible.
    [[nodiscard]] std::string_view Ahead() const
    {
        return {buffer.data() + begin, end - begin};
    }

    /// How many bytes `Read` has delivered.
    [[nodiscard]] std::uint64_t Offset() const
    {
        return dropped + begin;
    }

    /// True once all data was delivered and there is no more.
    [[nodiscard]] bool AtEnd() const
    {
        return ended && begin == end;
    }

    static constexpr std::size_t capacity = 64 * 1024;

private:
    void ReadPieces(char * data, int size);

    SourceStream & below;
    std::vector<char> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::uint64_t dropped = 0; // bytes that stood in the buffer before what it begins with
    bool ended = false;
};

} // namespace kv::tools
