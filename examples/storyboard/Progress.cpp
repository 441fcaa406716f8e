#include <kvcore/examples/storyboard/Progress.h>

#include <algorithm>

#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace
{

/// To open a file costs about as much as to read this many bytes; so a folder of small files moves evenly, too.
constexpr std::int64_t workPerFile = 16 * 1024;

} // namespace

Progress::Progress(OutputStream & errorStream, Screen const & screen, Loudness loudness)
    : error(errorStream), width(screen.errorWidth), quiet(loudness == Loudness::Quiet)
{
}

Progress::~Progress()
{
    try
    {
        Clear();
    }
    catch (StreamBase::Exception const &)
    {
        // Nobody sees the line any more.
    }
}

void Progress::Begin(std::string_view verb, std::int64_t fileCount, std::int64_t byteCount)
{
    what = verb;
    files = fileCount;
    totalWork = fileCount * workPerFile + byteCount;
    filesDone = 0;
    workDone = 0;
    quartersTold = 0;
}

void Progress::NextFile(std::string const & path)
{
    file = path;
    ++filesDone;
    workDone += workPerFile;
    Update();
}

void Progress::Advance(std::int64_t bytes)
{
    workDone += bytes;
    Update();
}

void Progress::End()
{
    workDone = totalWork;
    Clear();
    Update();
    Clear();
}

void Progress::Say(std::string_view line)
{
    Clear();
    kv::tools::PrintLine(error, line);
}

/// In percent. A file may grow while it is read.
int Progress::Share() const
{
    return totalWork == 0 ? 100 : static_cast<int>(std::min(1.0, double(workDone) / double(totalWork)) * 100);
}

/// The columns of the line. The last one stays free: some terminals go on to the next line when it is used.
std::size_t Progress::Room() const
{
    return static_cast<std::size_t>(std::max(width - 1, 8));
}

void Progress::Update()
{
    if (quiet || files == 0)
    {
        return;
    }
    int const share = Share();
    auto const line = [&]
    { return Text(TEXT_PROGRESS, what, std::to_string(share), Grouped(filesDone), Plural(files, TEXT_FILE)); };
    if (width == 0)
    {
        if (share / 25 > quartersTold)
        {
            quartersTold = share / 25;
            kv::tools::PrintLine(error, line());
        }
        return;
    }
    auto const now = std::chrono::steady_clock::now();
    if (now < nextUpdate)
    {
        return;
    }
    nextUpdate = now + std::chrono::milliseconds(100);
    std::size_t const room = Room();
    std::string const shown = Shortened(line() + "  " + Printable(file), room);
    kv::tools::Print(error, std::string_view('\r' + shown + std::string(room - DisplayWidth(shown), ' ')));
    lineShown = true;
}

void Progress::Clear()
{
    if (lineShown)
    {
        kv::tools::Print(error, std::string_view('\r' + std::string(Room(), ' ') + '\r'));
        lineShown = false;
    }
}

} // namespace Storyboard
