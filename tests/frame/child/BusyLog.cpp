#include "BusyLog.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <kvcore/frame/KVLogFile.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/FaultKinds.h>
#include <support/PlatformDefault.h>

#include "../BusyLines.h"

#ifndef _WIN32 // for signals of that system
#    include <pthread.h>
#    include <unistd.h>
#endif

namespace
{

/// Counts that outlive the process, in a file's memory.
class LastingCounts
{
public:
    explicit LastingCounts(char const * file)
        : handle(CreateFileW(
              kv::platform::PathFromNative(file).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)),
          mapping(CreateFileMappingW(handle, nullptr, PAGE_READWRITE, 0, sizeof(BusyCounts), nullptr)),
          counts(static_cast<BusyCounts *>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0)))
    {
        if (counts == nullptr)
        {
            std::abort();
        }
    }
    BusyCounts & Get()
    {
        return *counts;
    }

private:
    HANDLE handle;
    HANDLE mapping;
    BusyCounts * counts;
};

/// Writes down what the log has taken for certain: what it takes from now on may be dropped.
void NoteCertain(BusyCounts & counts)
{
    for (int thread = 0; thread < busyThreads; ++thread)
    {
        counts.certain[thread] = counts.taken[thread].load();
    }
}

/// Whether each thread has written enough.
bool HasFewest(BusyCounts const & counts)
{
    return std::all_of(
        std::begin(counts.taken), std::end(counts.taken), [](auto const & taken) { return taken >= fewestBusyLines; });
}

/// One of the threads may be the one that ends the process.
void LogForEver(int thread, BusyCounts & counts, std::function<void()> const & end)
{
    for (unsigned line = 0;; ++line)
    {
        KVLogFile::Object().AddLine(String::FromUtf8(BusyLine(thread, line)));
        counts.taken[thread].store(line + 1, std::memory_order_relaxed);
        while (line > 2 * fewestBusyLines && !HasFewest(counts))
        {
            std::this_thread::yield(); // the lock is not fair
        }
        if (end && HasFewest(counts))
        {
            end();
        }
    }
}

#ifndef _WIN32
std::map<std::string, int> const endSignals = {
    {"SIGTERM", SIGTERM}, {"SIGINT", SIGINT}, {"SIGHUP", SIGHUP}, {"SIGQUIT", SIGQUIT}, {"SIGABRT", SIGABRT}};
#endif

/// What ends the process, from whichever thread; empty if the name says nothing.
std::function<void()> EndingNamed(std::string const & name, BusyCounts & counts)
{
    std::map<std::string, std::function<void()>> const endings = {
        {"exit",
         [&counts]
         {
             NoteCertain(counts);
             std::exit(7);
         }},
        {"abort", [] { std::abort(); }},
        {"fault", [] { kv::test::ReadThroughNull(); }},
#ifndef _WIN32
        {"quick_exit", [] { std::quick_exit(7); }},
        {"_exit", [] { _exit(7); }},
#else
        {"_exit", [] { TerminateProcess(GetCurrentProcess(), 7); }},
#endif
    };
    auto const found = endings.find(name);
    if (found != endings.end())
    {
        return found->second;
    }
#ifndef _WIN32
    if (endSignals.contains(name))
    {
        return [signal = endSignals.at(name)] { raise(signal); };
    }
    if (name.starts_with("sent ") && endSignals.contains(name.substr(5)))
    {
        return [signal = endSignals.at(name.substr(5))]
        {
            kill(getpid(), signal);
            for (;;)
            {
                pause();
            }
        };
    }
#endif
    return nullptr;
}

} // namespace

int LogBusily(char const * ending, char const * file, char const * countsFile)
{
    kv::test::HaveThePlatformsDefault();
    static LastingCounts & lasting = *new LastingCounts(countsFile); // never destroyed: threads use it until the end
    BusyCounts & counts = lasting.Get();
    std::string const name = ending;
    bool const isByThread = name.starts_with("thread: ");
    bool const isToThread = name.starts_with("to thread: ");
    std::function<void()> const end = isToThread ? nullptr : EndingNamed(name.substr(isByThread ? 8 : 0), counts);
    KVLogFile::Object().SetFilename(kv::platform::PathFromNative(file).c_str());
    std::vector<std::thread> threads;
    for (int thread = 0; thread < busyThreads; ++thread)
    {
        std::function<void()> const own = isByThread && thread == 0 ? end : nullptr;
        threads.emplace_back([thread, &counts, own] { LogForEver(thread, counts, own); });
    }
    while (!HasFewest(counts))
    {
        std::this_thread::yield();
    }
#ifndef _WIN32
    if (isToThread)
    {
        // In the middle of whatever it does.
        pthread_kill(threads[3].native_handle(), endSignals.at(name.substr(11)));
    }
#endif
    if (isByThread || isToThread)
    {
        threads[0].join();
    }
    if (end)
    {
        end();
    }
    return 2;
}

#ifndef _WIN32
int LogWithOwnSignals(char const * file)
{
    static volatile std::sig_atomic_t handled = 0;
    std::signal(SIGTERM, [](int) { handled = handled + 1; });
    std::signal(SIGHUP, SIG_IGN);
    KVLogFile & log = KVLogFile::Object();
    log.SetFilename(kv::platform::PathFromNative(file).c_str());
    log.AddLine(TEXT("first"));
    raise(SIGTERM);
    raise(SIGHUP);
    log.AddLine(TEXT("second"));
    std::signal(SIGINT, [](int) { handled = handled + 1; }); // a way of its own that comes later
    raise(SIGINT);
    log.AddLine(TEXT("third"));
    std::signal(SIGQUIT, SIG_IGN);
    raise(SIGQUIT);
    return handled == 2 ? 0 : 3;
}
#endif
