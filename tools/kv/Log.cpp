#include <kvcore/tools/kv/Log.h>

#include <chrono>
#include <thread>

#include <kvcore/files/FileStreams.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/LogLines.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Terminal.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

constexpr auto pauseBetweenLooks = std::chrono::milliseconds(200);
constexpr DWORD chunk = 64 * 1024;

/// The bytes of a file that another process is writing.
class GrowingFile
{
public:
    explicit GrowingFile(std::string const & name)
    try : file(
        TypedPath(name), FileAccess_Read, FileShareMode(FileShare_Read | FileShare_Write | FileShare_Delete),
        FileCreation_OpenExisting, FileAttributes_SequentialScan)
    {
    }
    catch (BasicFileStream::Exception const & failure)
    {
        throw IoFailure(failure, "cannot open " + name);
    }

    /// Some more bytes; empty if there are none yet.
    std::string Next()
    {
        std::string bytes;
        position += file.Read(bytes, chunk);
        return bytes;
    }
    /// Goes back to the beginning if the file has become shorter than what was read. Whether it has.
    bool WasEmptied()
    {
        if (file.GetSize() >= position)
        {
            return false;
        }
        file.SetPosition(0, FileSeek_Begin);
        position = 0;
        return true;
    }

private:
    BasicFileStream file;
    std::int64_t position = 0;
};

std::optional<int> TimeOption(std::string const & text, char const * option)
{
    if (text.empty())
    {
        return std::nullopt;
    }
    std::optional<int> const time = ParseTimeOfDay(text);
    if (!time)
    {
        throw UsageError(std::string(option) + " takes a time of day such as 14:30 or 14:30:05, not \"" + text + "\"");
    }
    return time;
}

/// Shows the lines that pass, as bytes arrive.
class LogView
{
public:
    LogView(LogOptions const & options, Console & console)
        : filter{options.modules, TimeOption(options.since, "--since"), TimeOption(options.until, "--until")},
          coloured(options.colour == "always" || (options.colour == "auto" && IsTerminal(StandardStream::Output))),
          output("-", console)
    {
    }

    void Add(std::string const & bytes)
    {
        lines.Add(bytes, [this](std::string_view line) { Show(line); });
    }
    /// What has no line end yet, if no more comes.
    void Finish()
    {
        if (std::string const rest = lines.TakeRest(); !rest.empty())
        {
            Show(rest);
        }
        output.Finish();
    }
    /// Hands on what is shown so far: a reader waits for it.
    void Deliver()
    {
        output.Finish();
    }
    void Restart()
    {
        lines = {};
    }

private:
    void Show(std::string_view ansi)
    {
        std::string const line = String::FromSystemMultibyte(std::string(ansi)).Utf8();
        std::optional<LogLine> const parts = ParseLogLine(line);
        if (filter.Passes(parts))
        {
            PrintLine(output, coloured && parts ? Coloured(*parts) : Printable(line, Backslashes::Kept, Spaces::Tabs));
        }
    }

    LogFilter filter;
    bool coloured;
    NamedOutput output;
    LineCutter lines;
};

} // namespace

int ShowLog(LogOptions const & options, Console & console)
{
    LogView view(options, console);
    GrowingFile file(options.file);
    try
    {
        for (;;)
        {
            std::string const bytes = file.Next();
            if (!bytes.empty())
            {
                view.Add(bytes);
                continue;
            }
            if (!options.follow)
            {
                view.Finish();
                return ExitOk;
            }
            if (file.WasEmptied())
            {
                view.Restart();
                continue;
            }
            view.Deliver();
            std::this_thread::sleep_for(pauseBetweenLooks);
        }
    }
    catch (BasicFileStream::Exception const & failure)
    {
        throw IoFailure(failure, "cannot read " + options.file);
    }
}

} // namespace kv::tools
