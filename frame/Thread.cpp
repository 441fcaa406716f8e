#include <kvcore/frame/Thread.h>

#include <kvcore/platform/win32.h>

Thread::Thread() : handle(nullptr) {}

Thread::~Thread() {}

namespace kv::detail
{

/// The procedure of the system's thread, whose calling convention is the system's matter.
struct ThreadEntry
{
    static unsigned WINAPI Run(void * object)
    {
        Thread & thread = *static_cast<Thread *>(object);
        thread.init(true);
        thread.run();
        thread.init(false);
        return 0;
    }
};

} // namespace kv::detail

bool Thread::start(Priority priority)
{
    if (handle != nullptr)
    {
        waitForEnd(INFINITE);
    }
    handle = reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, kv::detail::ThreadEntry::Run, this, CREATE_SUSPENDED, nullptr));
    if (handle == nullptr)
    {
        return false;
    }
    setPriority(priority); // first, so that no step runs at another
    ResumeThread(handle);
    return true;
}

bool Thread::waitForEnd(DWORD milliseconds) const
{
    if (handle != nullptr && WaitForSingleObject(handle, milliseconds) != WAIT_TIMEOUT)
    {
        CloseHandle(handle);
        handle = nullptr;
    }
    return handle == nullptr;
}

bool Thread::isRunning() const
{
    return !waitForEnd(0);
}

void Thread::setPriority(Priority priority)
{
    if (handle != nullptr)
    {
        SetThreadPriority(handle, priority);
    }
}

void Thread::init(bool) {}
