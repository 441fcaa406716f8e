#pragma once

// Requests beside a fork, and with the request pool held: for this system alone.

#include <cstdio>
#include <functional>

#include <sys/wait.h>
#include <unistd.h>

#include <kvcore/platform/linux/overlapped/RequestPool.h>
#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchPaths.h>

/// No request begins while this lives.
struct Hold
{
    Hold()
    {
        kv::platform::HoldRequests(true);
    }
    ~Hold()
    {
        kv::platform::HoldRequests(false);
    }
    Hold(Hold const &) = delete;
    Hold & operator=(Hold const &) = delete;
};

/// Runs a step in another process and gives its result; -1 if it did not end by itself.
inline int InChild(std::function<DWORD()> const & step)
{
    std::fflush(stdout); // what stands there would be written by the child, too
    pid_t const child = fork();
    if (child == 0)
    {
        alarm(60); // a child that hangs is killed, and told from the others by that
        _exit(static_cast<int>(step()));
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline OVERLAPPED At(DWORD place, HANDLE event = nullptr)
{
    OVERLAPPED overlapped = {};
    overlapped.Offset = place;
    overlapped.hEvent = event;
    return overlapped;
}

inline ScopedHandle NewFile(ScratchPaths const & folder)
{
    return ScopedHandle(folder(TEXT("file")), readWrite, shareAll, CREATE_ALWAYS, FILE_FLAG_OVERLAPPED);
}

/// Starts a transfer and waits for its end. The error, 0 if there is none.
inline DWORD WriteNow(HANDLE file, void const * bytes, DWORD count, DWORD place)
{
    OVERLAPPED overlapped = At(place);
    DWORD done = 0;
    bool const started = WriteFile(file, bytes, count, nullptr, &overlapped) || GetLastError() == ERROR_IO_PENDING;
    return started && GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
}

inline DWORD ReadNow(HANDLE file, void * bytes, DWORD count, DWORD place)
{
    OVERLAPPED overlapped = At(place);
    DWORD done = 0;
    bool const started = ReadFile(file, bytes, count, nullptr, &overlapped) || GetLastError() == ERROR_IO_PENDING;
    return started && GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
}

inline DWORD ResultOf(HANDLE file, OVERLAPPED & overlapped)
{
    DWORD done = 0;
    return GetOverlappedResult(file, &overlapped, &done, TRUE) ? 0 : GetLastError();
}
