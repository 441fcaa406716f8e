// The log beside spdlog's asynchronous file logger, which blocks when its queue is full, as ours never drops a line.

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <spdlog/async_logger.h>
#include <spdlog/details/thread_pool.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/detail/LogLifetime.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t queueSize = 8192; // spdlog's own choice

std::string const & Line()
{
    static std::string const line = []
    {
        std::string text;
        while (text.size() < 80)
        {
            text += "clip 17 of reel 4 decoded ";
        }
        return text.substr(0, 80);
    }();
    return line;
}

/// Ours, with its file open until it is destroyed.
class OurLog
{
public:
    explicit OurLog(std::string const & path) : log(kv::detail::LogLifetime::Make()), text(String::FromUtf8(Line()))
    {
        log->SetFilename(kv::platform::PathFromNative(path).c_str());
    }
    ~OurLog()
    {
        kv::detail::LogLifetime::Delete(log);
    }
    void Add()
    {
        log->AddLine(text);
    }

private:
    KVLogFile * log;
    String text;
};

/// The peer's, which gives its lines the same look.
class PeerLog
{
public:
    explicit PeerLog(std::string const & path)
        : pool(std::make_shared<spdlog::details::thread_pool>(queueSize, 1)),
          logger(std::make_shared<spdlog::async_logger>(
              "log", std::make_shared<spdlog::sinks::basic_file_sink_st>(path, true), pool,
              spdlog::async_overflow_policy::block))
    {
        auto formatter = std::make_unique<spdlog::pattern_formatter>(
            "[%H:%M:%S] kvbench    %v", spdlog::pattern_time_type::local, "\r\n");
        logger->set_formatter(std::move(formatter));
    }
    ~PeerLog()
    {
        logger.reset();
        pool.reset(); // returns when the queue is empty
    }
    void Add()
    {
        logger->info(Line());
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
};

template <class Log>
void WriteLines(std::string const & path, std::size_t threadCount, std::size_t lines)
{
    Log log(path);
    if (threadCount == 1)
    {
        for (std::size_t i = 0; i < lines; ++i)
        {
            log.Add();
        }
        return;
    }
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [&log, count = lines / threadCount]
            {
                for (std::size_t i = 0; i < count; ++i)
                {
                    log.Add();
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
}

/// The time that one call takes of those in short bursts, in seconds: so many thousandths of the calls take less.
template <class Log>
double CallTime(std::string const & path, std::size_t thousandths)
{
    constexpr std::size_t burst = 2000;
    std::size_t const bursts = bench::Scaled(100, 20);
    std::vector<double> times;
    times.reserve(burst * bursts);
    for (std::size_t i = 0; i < bursts; ++i)
    {
        Log log(path); // its end waits until everything is written
        for (std::size_t call = 0; call < burst; ++call)
        {
            auto const start = Clock::now();
            log.Add();
            times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
    }
    std::sort(times.begin(), times.end());
    return times[times.size() * thousandths / 1000];
}

std::string Content(std::string const & path)
{
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (std::size_t at = 0; at < bytes.size(); at += 10 + 12 + Line().size() + 2)
    {
        bytes.replace(at, 10, "[00:00:00]");
    }
    return bytes;
}

void AddLogJobs()
{
    std::string const ours = (bench::ScratchFolder::Path() / "ours.log").string();
    std::string const peers = (bench::ScratchFolder::Path() / "peers.log").string();
    WriteLines<OurLog>(ours, 1, 1000);
    WriteLines<PeerLog>(peers, 1, 1000);
    bench::Require(Content(ours) == Content(peers), "Log");

    std::size_t const lines = bench::Scaled(400'000, 100'000);
    for (std::size_t const threads : {1, 4})
    {
        std::string const job = "Log/" + std::to_string(threads) + (threads == 1 ? "-thread/" : "-threads/");
        std::size_t const bytes = lines * Line().size();
        bench::AddLong(
            job + "ours", bytes, [] {}, [=] { WriteLines<OurLog>(ours, threads, lines); });
        bench::AddLong(
            job + "spdlog", bytes, [] {}, [=] { WriteLines<PeerLog>(peers, threads, lines); });
    }
    bench::AddTimed("LogCall/median/ours", [=] { return CallTime<OurLog>(ours, 500); });
    bench::AddTimed("LogCall/median/spdlog", [=] { return CallTime<PeerLog>(peers, 500); });
    bench::AddTimed("LogCall/99.9-percent/ours", [=] { return CallTime<OurLog>(ours, 999); });
    bench::AddTimed("LogCall/99.9-percent/spdlog", [=] { return CallTime<PeerLog>(peers, 999); });
}

bench::Source const source(AddLogJobs);

} // namespace
