#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include <kvcore/streams/Streams.h>

namespace Storyboard
{

/// What the program knows about where it prints. The default is a place that is no terminal.
struct Screen
{
    int outputWidth = 0; ///< the columns of the terminal that shows the output; 0 if it goes elsewhere
    int errorWidth = 0;  ///< the same for messages and progress
};

/// Tells how far a long job is: on a terminal by one line that is written over, elsewhere by a line for each quarter of
/// the work.
class Progress
{
public:
    enum class Loudness
    {
        Quiet,
        Normal
    };

    Progress(OutputStream & errorStream, Screen const & screen, Loudness loudness);
    /// Clears the line.
    ~Progress();
    Progress(Progress const &) = delete;
    Progress & operator=(Progress const &) = delete;

    /// Sets out on a job: so many files with so many bytes.
    void Begin(std::string_view verb, std::int64_t fileCount, std::int64_t byteCount);
    /// Goes on with the next file; `path` may be any text.
    void NextFile(std::string const & path);
    /// Counts bytes of it as done.
    void Advance(std::int64_t bytes);
    /// The job is done.
    void End();

    /// Says something that stays, also if quiet.
    void Say(std::string_view line);

private:
    int Share() const;
    std::size_t Room() const;
    void Update();
    void Clear();

    OutputStream & error;
    int const width;
    bool const quiet;
    std::string what;
    std::string file;
    std::int64_t files = 0;
    std::int64_t totalWork = 0;
    std::int64_t filesDone = 0;
    std::int64_t workDone = 0;
    int quartersTold = 0;
    bool lineShown = false;
    std::chrono::steady_clock::time_point nextUpdate;
};

} // namespace Storyboard
