#include <kvcore/frame/SysParamWatcher.h>

#include <kvcore/platform/win32.h>

namespace
{

__int64 KeyOf(UINT setAction, UINT getAction)
{
    return static_cast<__int64>(static_cast<unsigned __int64>(setAction) << 32 | getAction);
}

UINT SetActionOf(__int64 key)
{
    return static_cast<UINT>(static_cast<unsigned __int64>(key) >> 32);
}

UINT GetActionOf(__int64 key)
{
    return static_cast<UINT>(static_cast<unsigned __int64>(key) & 0xFFFFFFFFu);
}

DWORD Read(UINT getAction)
{
    DWORD value = 0;
    SystemParametersInfoW(getAction, 0, &value, 0);
    return value;
}

void Write(UINT setAction, DWORD value)
{
    SystemParametersInfoW(setAction, value, nullptr, SPIF_UPDATEINIFILE);
}

} // namespace

void SysParamWatcher::OnTimer(unsigned int timerId)
{
    if (timerId == timer)
    {
        ApplyValues();
    }
}

SysParamWatcher::SysParamWatcher() : timer(0), interval(10), watching(false) {}

SysParamWatcher::~SysParamWatcher()
{
    if (watching)
    {
        RestoreDefaults();
    }
    StopTimer(); // which may run without it
}

void SysParamWatcher::StopTimer()
{
    if (timer != 0)
    {
        KVKillTimer(timer);
        timer = 0;
    }
}

void SysParamWatcher::StartTimer()
{
    constexpr unsigned int second = 1000;
    timer = KVSetTimer(second, interval * second, this, true);
}

void SysParamWatcher::SetUpdateInterval(unsigned int seconds)
{
    interval = seconds;
    if (watching)
    {
        StopTimer();
        StartTimer();
    }
}

void SysParamWatcher::SetParamToWatch(unsigned int setAction, unsigned int getAction, unsigned int value)
{
    parameters[KeyOf(setAction, getAction)] = {value, Read(getAction)};
}

void SysParamWatcher::RemoveParamFromWatchlist(unsigned int setAction)
{
    StopTimer();
    for (auto entry = parameters.begin(); entry != parameters.end();)
    {
        if (SetActionOf(entry->first) != setAction)
        {
            ++entry;
            continue;
        }
        if (watching)
        {
            Write(setAction, entry->second.saved);
        }
        entry = parameters.erase(entry);
    }
    StartTimer(); // Kept: also if it is not watching
}

void SysParamWatcher::StartWatching(bool saveCurrent)
{
    StopTimer();
    if (saveCurrent)
    {
        SaveCurrentSystemValues();
    }
    ApplyValues();
    StartTimer();
    watching = true;
}

void SysParamWatcher::StopWatching()
{
    RestoreDefaults();
}

void SysParamWatcher::RestoreDefaults()
{
    StopTimer();
    watching = false;
    for (auto const & [key, values] : parameters)
    {
        Write(SetActionOf(key), values.saved);
    }
}

void SysParamWatcher::ApplyValues()
{
    for (auto const & [key, values] : parameters)
    {
        Write(SetActionOf(key), values.wanted);
    }
}

void SysParamWatcher::SaveCurrentSystemValues()
{
    for (auto & [key, values] : parameters)
    {
        values.saved = Read(GetActionOf(key));
    }
}

bool SysParamWatcher::IsWatching() const
{
    return watching;
}
