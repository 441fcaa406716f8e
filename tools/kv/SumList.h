#pragma once

#include <kvcore/streams/MD5.h>
#include <kvcore/tools/support/SourceStream.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kv::tools
{

/// How sums are printed.
enum class SumForm
{
    Hex,    ///< 32 lower-case digits, as other sum tools print
    Base64, ///< 22 characters
    Both,   ///< the hexadecimal form, a blank, the Base64 form
};

/// One line of a list: a file and the sum that it had.
struct SumEntry
{
    MD5Sum sum;
    std::string name;
};

/// The line for a file, without its end: the sum, two blanks, the name. A name that holds a backslash or a line end has
/// these written as "\\", "\n" and "\r", and then the line begins with a backslash.
[[nodiscard]] std::string FormatSumLine(MD5Sum const & sum, std::string_view name, SumForm form);

/// The name as people read it: as it is if all of it prints, else escaped (see Printable) behind a backslash, as above.
[[nodiscard]] std::string DisplayedName(std::string_view name);

/// Reads a line in any of these forms; nothing if it is in none of them. A sum is 32 hexadecimal digits in either case,
/// or 22 Base64 characters with or without the padding.
///
///     SUM  name          SUM *name          SUM name
///     HEX BASE64  name
///     MD5 (name) = SUM   MD5(name)= SUM
///
/// A backslash in front says that the name is escaped.
[[nodiscard]] std::optional<SumEntry> ParseSumLine(std::string_view line);

/// Splits a list into its lines, whose ends may be LF or CR LF; a byte order mark in front is dropped. Memory is
/// bounded: of a line longer than any name can be only the beginning is given.
class LineReader
{
public:
    explicit LineReader(SourceStream & source);

    /// False at the end of the list.
    [[nodiscard]] bool Next(std::string & line);

private:
    [[nodiscard]] bool NextByte(char & byte);

    SourceStream & source;
    std::vector<char> buffer;
    std::size_t position = 0;
    std::size_t filled = 0;
    bool first = true;
};

} // namespace kv::tools
