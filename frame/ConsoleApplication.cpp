#include <kvcore/frame/ConsoleApplication.h>

#include <kvcore/platform/win32.h>

int ConsoleApplication::Run(HINSTANCE program)
{
    Init(program);
    if (InitInstance())
    {
        Main();
    }
    Free();
    return GetExitCode();
}

int KVRunConsoleApplication(ConsoleApplication & application)
{
    return application.Run(GetModuleHandleW(nullptr));
}
