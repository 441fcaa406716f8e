#pragma once

#include <kvcore/streams/Streams.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kv::tools
{

/// Writes text, UTF-8, as it stands. Failures of the stream pass through.
void Print(OutputStream & stream, std::string_view text);
void Print(OutputStream & stream, String const & text);

/// The same, followed by a line feed.
void PrintLine(OutputStream & stream, std::string_view text);
void PrintLine(OutputStream & stream, String const & text);

/// A number of bytes for people: "0 B", "1023 B", "1.0 KiB", "15.9 MiB".
[[nodiscard]] std::string HumanSize(std::uint64_t bytes);

/// A count with its noun: "1 byte", "2 bytes".
[[nodiscard]] std::string Counted(std::uint64_t count, std::string_view noun);

} // namespace kv::tools
