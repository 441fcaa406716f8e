#include <kvcore/examples/storyboard/SourceJobs.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/RunLog.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/frame/SEHException.h>
#include <kvcore/frame/SysInfo.h>
#include <kvcore/frame/Thread.h>
#include <kvcore/platform/win32.h>

namespace Storyboard
{

namespace
{

/// One file's result, or what no other file will fare better with.
struct Reading
{
    SourceResult result;
    std::exception_ptr problem;
};

/// What the threads that read and the one that shows the progress have in common.
class Board
{
public:
    explicit Board(std::vector<FoundFile> const & allFiles) : files(allFiles) {}

    /// The next file to read, or null if none is left.
    FoundFile const * Take()
    {
        std::lock_guard const guard(lock);
        return nextFile < files.size() ? &files[nextFile++] : nullptr;
    }
    void Advance(int bytes)
    {
        std::lock_guard const guard(lock);
        newBytes += bytes;
        changed.notify_one();
    }
    void Put(FoundFile const & file, Reading reading)
    {
        std::lock_guard const guard(lock);
        readings.emplace(&file, std::move(reading));
        changed.notify_one();
    }

    /// Shows the progress until `file` has been read, and hands over what came of it.
    SourceResult Await(FoundFile const & file, Progress & progress)
    {
        std::unique_lock guard(lock);
        for (;;)
        {
            std::int64_t const bytes = std::exchange(newBytes, 0);
            auto found = readings.extract(&file);
            guard.unlock();
            progress.Advance(bytes);
            if (found && found.mapped().problem)
            {
                std::rethrow_exception(found.mapped().problem);
            }
            if (found)
            {
                return std::move(found.mapped().result);
            }
            guard.lock();
            changed.wait(guard, [&] { return newBytes != 0 || readings.contains(&file); });
        }
    }

    /// Leaves no file to take.
    void Close()
    {
        std::lock_guard const guard(lock);
        nextFile = files.size();
    }

private:
    std::vector<FoundFile> const & files;
    std::mutex lock;
    std::condition_variable changed;
    std::size_t nextFile = 0;
    std::int64_t newBytes = 0;
    std::map<FoundFile const *, Reading> readings;
};

std::string NameOf(FoundFile const & file)
{
    return file.path.substr(file.path.rfind('/') + 1);
}

/// What a damaged picture does to a reader that trusts it. A sanitizer would tell of it before the processor does.
[[gnu::noinline, gnu::no_sanitize("address", "undefined", "thread")]] void ProvokeFault()
{
    int volatile * volatile const nowhere = nullptr;
    *nowhere = 1;
}

/// Reads files as long as there are any.
class Reader : public Thread
{
public:
    Reader(Board & sharedBoard, std::string const & nameOfFault) : board(sharedBoard), faultName(nameOfFault) {}

    void run() override
    {
        SEHTryCatchEnabler const faultsAreExceptions(TEXT("storyboard: reading sources"));
        while (FoundFile const * const file = board.Take())
        {
            Reading reading;
            try
            {
                reading.result = Read(*file);
            }
            catch (...)
            {
                reading.problem = std::current_exception();
            }
            board.Put(*file, std::move(reading));
        }
    }

private:
    SourceResult Read(FoundFile const & file)
    {
        std::string const name = Printable(file.path);
        SourceResult result;
        try
        {
            Log(LogFile, "Reading " + name);
            if (!faultName.empty() && NameOf(file) == faultName)
            {
                ProvokeFault();
            }
            result.content = ReadSource(file, [this](int size) { board.Advance(size); });
            Log(LogFile,
                "Read " + name + ": " + std::to_string(result.content.size) + " bytes, sum " +
                    result.content.sum.HexString());
        }
        catch (SEHException const & fault)
        {
            Log(LogFile, "Fault at " + name + ": " + fault.GetMsg().Utf8());
            result.failure = Text(TEXT_FAULT, fault.GetCodeAsString().Utf8());
        }
        catch (StreamBase::Exception const & failure)
        {
            result.failure = failure.text.Utf8();
            Log(LogFile, "Cannot read " + name + ": " + result.failure);
        }
        return result;
    }

    Board & board;
    std::string const & faultName;
};

/// The threads at work. At its end they have ended, too.
class Crew
{
public:
    Crew(Board & sharedBoard, std::string const & faultName, std::size_t count) : board(sharedBoard)
    {
        readers.reserve(count);
        for (std::size_t i = 0; i != count; ++i)
        {
            auto reader = std::make_unique<Reader>(board, faultName);
            if (reader->start(IKVThread::PriorityNormal))
            {
                readers.push_back(std::move(reader));
            }
        }
        if (readers.empty())
        {
            Reader(board, faultName).run(); // no thread is to be had: all is done here
        }
    }
    ~Crew()
    {
        board.Close();
        for (auto const & reader : readers)
        {
            reader->waitForEnd(INFINITE);
        }
    }
    Crew(Crew const &) = delete;
    Crew & operator=(Crew const &) = delete;

private:
    Board & board;
    std::vector<std::unique_ptr<Reader>> readers;
};

std::size_t ReaderCount(ReadingOptions const & options, std::size_t fileCount)
{
    SYSTEM_INFO info;
    String processor;
    SysInfo::GetSystemInfo(info, processor);
    std::size_t const wanted = options.jobs > 0 ? std::size_t(options.jobs) : info.dwNumberOfProcessors;
    return std::clamp<std::size_t>(wanted, 1, std::clamp<std::size_t>(fileCount, 1, ReadingOptions::maxJobs));
}

} // namespace

void ReadSources(
    std::vector<FoundFile> const & files, ReadingOptions const & options, Progress & progress,
    std::function<void(FoundFile const &, SourceResult const &)> const & take)
{
    std::size_t const count = ReaderCount(options, files.size());
    Log(LogStep, "Reading " + std::to_string(files.size()) + " files on " + std::to_string(count) + " threads");
    Board board(files);
    Crew const crew(board, options.faultName, count);
    for (FoundFile const & file : files)
    {
        progress.NextFile(file.path);
        take(file, board.Await(file, progress));
    }
}

} // namespace Storyboard
