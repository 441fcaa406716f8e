#include <kvcore/frame/Timer.h>

#include <kvcore/platform/win32.h>

namespace
{

void CALLBACK CallTarget(UINT id, UINT, DWORD_PTR target, DWORD_PTR, DWORD_PTR)
{
    if (target != 0)
    {
        reinterpret_cast<ITimerTarget *>(target)->OnTimer(id);
    }
}

} // namespace

// Without TIME_KILL_SYNCHRONOUS a call that has begun on the timer's thread outlasts timeKillEvent, and may meet a
// target that its owner has destroyed after it.
unsigned int KVSetTimer(unsigned int resolution, unsigned int delay, ITimerTarget * target, bool periodic)
{
    UINT const flags = (periodic ? TIME_PERIODIC : TIME_ONESHOT) | TIME_KILL_SYNCHRONOUS;
    return timeSetEvent(delay, resolution, CallTarget, reinterpret_cast<DWORD_PTR>(target), flags);
}

void KVKillTimer(unsigned int id)
{
    timeKillEvent(id);
}
