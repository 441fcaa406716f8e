#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <kvcore/core/String.h>
#include <kvcore/platform/types.h>

namespace kv::tools
{

/// A value of a key in the registry.
struct RegistryValue
{
    String name; ///< empty for the key's default value
    DWORD type = 0;
    std::string data; ///< the bytes as they are stored
};

/// The name of a type, "REG_SZ", or its number, "0x8000001F", for one without.
[[nodiscard]] std::string RegistryTypeName(DWORD type);

/// The type of a name, with or without "REG_", in any case, or of a number; nothing for another text.
[[nodiscard]] std::optional<DWORD> RegistryTypeFrom(std::string const & name);

/// A number in decimal or, with "0x", hexadecimal digits; nothing for another text, or above `most`.
[[nodiscard]] std::optional<std::uint64_t> RegistryNumberFrom(std::string_view text, std::uint64_t most);

/// Whether data of the type is text: one, or a list of several.
[[nodiscard]] bool IsRegistryText(DWORD type);

/// The bytes as elements; an odd last byte is left out.
[[nodiscard]] String RegistryText(std::string const & data);

/// The elements as bytes.
[[nodiscard]] std::string RegistryBytes(WString const & text);

} // namespace kv::tools
