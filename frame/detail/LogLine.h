#pragma once

// What a line of the log looks like, and how its bytes are cut.

#include <algorithm>
#include <cstring>
#include <string_view>

#include <kvcore/core/String.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

using LogText = std::basic_string_view<WCHAR>;

/// The time of day that a line shows.
struct LogTime
{
    unsigned hour;
    unsigned minute;
    unsigned second;
};

constexpr std::size_t logTimeLength = 11; // "[09:05:07] "
constexpr std::size_t logNameLength = 10;

/// Appends "[09:05:07] name       " (the name in exactly ten places), two blanks for each step of `indent`, the text
/// and a line end. An empty text is a line end alone.
KVCORE_API void
AppendLogLine(WString & line, LogTime const & time, LogText moduleName, unsigned long indent, LogText text);

/// Lines of ASCII, as bytes: what AppendLogLine makes of the same. The beginning of the last one is kept, since the
/// next one has the same nearly always.
class KVCORE_API AsciiLogLine
{
public:
    /// What the next lines show.
    void SetTime(LogTime const & time);
    void SetName(LogText moduleName);
    /// Puts a line into `room` and gives its length; 0 if it has no room, is not all ASCII, or is no line: empty,
    /// or with line ends in it. What stands in the room means nothing then.
    std::size_t Put(char * room, std::size_t size, unsigned long indent, LogText text) const;

private:
    char stamp[logTimeLength + logNameLength + 1];
    bool hasAsciiName = false;
};

/// The memory from which the log's bytes are written: slots that are used in turn, so that the bytes of a write stay
/// where they are while it is on its way.
class LogRing
{
public:
    static constexpr std::size_t slotSize = 512;
    static constexpr std::size_t slotCount = 256;
    static constexpr std::size_t size = slotSize * slotCount;

    /// Does not own the memory.
    explicit LogRing(char * ringMemory) : memory(ringMemory) {}

    /// Cuts `bytes` into pieces of a slot's size, puts each into the next slot and hands it to `write(data, size)`.
    template <typename Write>
    void Put(std::string_view bytes, Write write)
    {
        while (!bytes.empty())
        {
            std::size_t const length = std::min(bytes.size(), slotSize);
            std::memcpy(Next(), bytes.data(), length);
            bytes.remove_prefix(length);
            write(Take(), length);
        }
    }

    /// The slot whose turn it is, for who fills it himself and takes it then.
    char * Next() const
    {
        return memory + next * slotSize;
    }
    char const * Take()
    {
        char const * const taken = Next();
        next = (next + 1) % slotCount;
        return taken;
    }

private:
    char * memory;
    std::size_t next = 0;
};

} // namespace kv::detail
