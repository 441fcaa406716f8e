#include <kvcore/frame/COMThread.h>

#include <kvcore/platform/win32.h>

void COMThread::init(bool starting)
{
    if (starting)
    {
        CoInitialize(nullptr);
    }
    else
    {
        CoUninitialize();
    }
}
