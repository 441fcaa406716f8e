#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/streams/Streams.h>
#include <kvcore/tools/support/RegistryPath.h>
#include <kvcore/tools/support/RegistryValue.h>

// The platform's text format for keys and values, as files of the ending .reg hold it.

namespace kv::tools
{

/// A value that a registry text sets or deletes.
struct RegistryTextValue
{
    RegistryValue value; ///< with a name alone if it is to be deleted
    bool isDeleted = false;
    std::size_t line = 0; ///< where it begins, from 1
};

/// A key that a registry text makes, or deletes with all that is below it, and what it does to the key's values. A text
/// may name a key several times.
struct RegistryTextKey
{
    RegistryPath path;
    bool isDeleted = false;
    std::size_t line = 0;
    std::vector<RegistryTextValue> values;
};

/// A text is not in the format.
struct RegistryTextError : std::runtime_error
{
    RegistryTextError(std::size_t badLine, std::string const & reason) : std::runtime_error(reason), line(badLine) {}

    std::size_t line; ///< from 1
};

/// Reads a text, in its order. Throws RegistryTextError at the first thing that is not as it should be, so that nothing
/// need be done of a text that is not understood whole.
///
/// The bytes are UTF-16 behind its byte-order mark, UTF-8 behind its own, and else text in the system's code page. The
/// first line names the format: "Windows Registry Editor Version 5.00", or "REGEDIT4", where text given as bytes
/// (hex(1), hex(2), hex(7)) is in the system's code page. Then come
///
///     [KEY]               makes the key, for the values below it
///     [-KEY]              deletes the key with all that is below it
///     "name"="text"       a text, with \\ and \" for the two, and \n and \r for line ends; also with line ends as they
///     are "name"=dword:1f     a number of up to eight hexadecimal digits "name"=hex:01,02    bytes, which go on in the
///     next line behind a backslash; hex(7): gives them another type "name"=-            deletes the value
///     @=                  any of these for the key's default value
///     ; comment           also behind a value
[[nodiscard]] std::vector<RegistryTextKey> ParseRegistryText(std::string_view bytes);

/// Writes a text of version 5.00, UTF-16 with a byte-order mark. Reading it gives the same keys and values, byte for
/// byte. Failures of the stream pass through.
class RegistryTextWriter
{
public:
    /// Writes the head.
    explicit RegistryTextWriter(OutputStream & target);

    /// Whether the format can hold a key of this path: none with a line end in it.
    [[nodiscard]] static bool CanHold(String const & path);

    /// Begins a key, whose values follow. `path` is the whole one, and one that the format can hold.
    void Key(String const & path);
    void Value(RegistryValue const & value);
    /// Writes what stands at the end.
    void Finish();

private:
    void Write(WString const & text);

    OutputStream & stream;
};

} // namespace kv::tools
