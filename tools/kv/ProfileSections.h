#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kvcore/core/String.h>

namespace kv::tools
{

/// A section of a profile with its keys and values, quotes included, in the order of the file.
struct ProfileSection
{
    String name;
    std::vector<std::pair<String, String>> entries;
};

/// The sections of a profile's bytes as the platform's calls find them: in the encoding of the byte-order mark or else
/// the system's, without blanks around names and values, and of several sections of one name the first. Any bytes do.
///
/// The platform's calls give one section at a time and may read the file anew for each.
[[nodiscard]] std::vector<ProfileSection> ReadProfileSections(std::string_view bytes);

} // namespace kv::tools
