#include <kvcore/tools/support/LocalTime.h>

#include <cstdio>

#include <kvcore/platform/win32.h>

namespace kv::tools
{

std::string LocalTime(DateTime const & time)
{
    SYSTEMTIME utc;
    SYSTEMTIME local;
    time.GetAsUTCSystemTime(utc);
    // DateTime's own conversion takes today's distance from UTC, winter and summer alike.
    if (time == DateTime() || utc.wYear == 0 || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
    {
        return "-";
    }
    char text[64];
    std::snprintf(
        text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", unsigned(local.wYear), unsigned(local.wMonth),
        unsigned(local.wDay), unsigned(local.wHour), unsigned(local.wMinute), unsigned(local.wSecond));
    return text;
}

} // namespace kv::tools
