#pragma once

#include <string>

#include <kvcore/frame/DateTime.h>

namespace kv::tools
{

/// "2023-02-04 11:20:00" by the clocks of this place as they stood at that time of the year; "-" for no time, and for
/// one that no calendar has.
[[nodiscard]] std::string LocalTime(DateTime const & time);

} // namespace kv::tools
