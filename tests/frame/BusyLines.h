#pragma once

// What the threads of a process write that logs without a pause, and how it is known again.

#include <atomic>
#include <string>

constexpr int busyThreads = 6;
constexpr unsigned fewestBusyLines = 300; // of each thread, before the process ends

/// How many lines of each thread the log has taken, and how many when it began to end.
struct BusyCounts
{
    std::atomic<unsigned> taken[busyThreads];
    std::atomic<unsigned> certain[busyThreads];
};

/// The text of one line: mostly short, some longer than a piece of the log's, some beyond ASCII.
inline std::string BusyLine(int thread, unsigned line)
{
    std::string text = "thread " + std::to_string(thread) + " line " + std::to_string(line) + " ";
    std::size_t const filling = line % 89 == 88 ? 2900 : line % 13;
    text += line % 31 == 30 ? "\xC3\xA4" : "";
    text.append(filling, 'x');
    return text + "!";
}
