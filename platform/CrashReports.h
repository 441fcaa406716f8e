#pragma once

// Where crash reports lie.

#include <string>

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// The folder of crash reports in native spelling (UTF-8): `crashes` in the data directory on Linux, which
/// "ReportFault" makes when it writes its first report. On Windows the system keeps its own reports elsewhere, and the
/// folder is `kvcore\crashes` under the local application data, for those that a program puts there. Empty if there is
/// no such place.
KVCORE_API std::string CrashReportFolder();

/// The most reports that are kept in the folder. A new one takes the place of the oldest.
inline constexpr int mostCrashReports = 32;

} // namespace kv::platform
