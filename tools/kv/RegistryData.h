#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kvcore/tools/support/RegistryValue.h>

namespace kv::tools
{

/// The data of a value in one line: texts as they are, those of a list with \0 between them, numbers as 0x2a, and all
/// else, also text or a number of a wrong size, as hexadecimal digits.
[[nodiscard]] String RegistryDataText(RegistryValue const & value);

/// The texts of a list. An empty one that is not the last belongs to them.
[[nodiscard]] std::vector<String> RegistryDataItems(std::string const & data);

/// Data of a type from what was typed. One that is a list of texts takes any number of them, each of which may be
/// several with `separator` between them; bytes, also those of a type that is not known, take hexadecimal digits with
/// or without commas and blanks between two of them; the others take one word. Throws UsageError.
[[nodiscard]] std::string
RegistryDataFrom(DWORD type, std::vector<std::string> const & typed, std::string const & separator);

/// A name or data in a line of fields: tabs, line ends and backslashes as \t, \n, \r and \\, so that the line can be
/// taken apart.
[[nodiscard]] std::string RegistryField(String const & text);

/// The same in a line for people, where backslashes stay: only characters that are none to see are written otherwise.
[[nodiscard]] std::string RegistryLine(String const & text);

/// A value in a line for people: name, type and data, four blanks between them, as the platform's own tool has them.
[[nodiscard]] std::string RegistryValueLine(RegistryValue const & value);

} // namespace kv::tools
