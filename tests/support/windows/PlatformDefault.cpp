#include <support/PlatformDefault.h>

#include <kvcore/platform/win32.h>

namespace kv::test
{

namespace
{

// As the system's own, but for the debugger that it may start first.
LONG CALLBACK EndAtOnce(EXCEPTION_POINTERS * exception)
{
    TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

void HaveThePlatformsDefault()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetUnhandledExceptionFilter(EndAtOnce);
}

bool EndedByBadPointer(int status)
{
    return static_cast<DWORD>(status) == STATUS_ACCESS_VIOLATION;
}

} // namespace kv::test
