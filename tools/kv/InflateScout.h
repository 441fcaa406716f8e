#pragma once

#include <kvcore/tools/kv/Window.h>

#include <memory>

namespace kv::tools
{

/// A window under the library's decompressing stream that knows how many bytes the stream can deliver from what is
/// visible, and where the compressed data ends. It inflates what it sees once more, for the count alone: that costs a
/// small part of what reading byte by byte would.
class ScoutedWindow : public Window
{
public:
    explicit ScoutedWindow(SourceStream & stream);
    ~ScoutedWindow() override;

    /// How many bytes the decompressing stream can deliver for certain. 0 means that the next byte read will tell: the
    /// data ends, is damaged, or holds nothing within sight.
    [[nodiscard]] std::size_t AvailableBytes();

    /// Tells that the decompressing stream has delivered `count` bytes.
    void Delivered(std::size_t count);

    /// True if the compressed data is complete, its check value included.
    [[nodiscard]] bool Ended() const;

    void Read(char * data, int size) override;

private:
    struct Scout;
    std::unique_ptr<Scout> scout;
    std::size_t available = 0;
    std::uint64_t scouted = 0; // how far the scout is, in bytes since the beginning
};

} // namespace kv::tools
