#include <kvcore/tools/kv/Crash.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <kvcore/platform/CrashReports.h>
#include <kvcore/tools/kv/CrashLines.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

using std::filesystem::path;

constexpr std::size_t longestLine = 16 * 1024;
constexpr char whatLabel[] = "What:    ";
constexpr char processLabel[] = "Process: ";

path Utf8Path(std::string const & text)
{
    return TypedNativePath(text);
}

std::string Utf8Name(path const & file)
{
    return NativeBytes(file);
}

/// The reports' paths, the oldest first: their names begin with the time.
std::vector<path> Reports()
{
    std::vector<path> reports;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(Utf8Path(kv::platform::CrashReportFolder()), error), end;
         !error && entry != end; entry.increment(error))
    {
        std::string const name = Utf8Name(entry->path().filename());
        if (name.starts_with("crash-") && name.ends_with(".txt"))
        {
            reports.push_back(entry->path());
        }
    }
    std::sort(reports.begin(), reports.end());
    return reports;
}

/// A line, cut off where no report would have one so long. False at the end.
bool ReadLine(std::istream & file, std::string & line)
{
    line.clear();
    int c;
    while ((c = file.get()) != std::istream::traits_type::eof() && c != '\n')
    {
        if (line.size() < longestLine)
        {
            line += static_cast<char>(c);
        }
    }
    return !line.empty() || c == '\n';
}

/// What follows a label near the report's beginning; a dash if it is not there.
std::string Field(path const & report, std::string const & label)
{
    constexpr int headLines = 16;
    std::ifstream file(report, std::ios::binary);
    std::string line;
    for (int i = 0; i < headLines && ReadLine(file, line); ++i)
    {
        if (line.starts_with(label))
        {
            return line.substr(label.size());
        }
    }
    return "-";
}

/// Writes a report's lines for people. An exhausted stack has the same frame hundreds of times: it is shown once.
class ReportView
{
public:
    explicit ReportView(OutputStream & target) : output(target) {}

    void Add(std::string const & line)
    {
        std::string const frame = Frame(line);
        if (!frame.empty() && frame == last)
        {
            ++more;
            return;
        }
        Finish();
        last = frame;
        PrintLine(output, Printable(WithSourceNames(line), Backslashes::Kept, Spaces::Tabs));
    }
    void Finish()
    {
        if (more != 0)
        {
            PrintLine(output, "     and " + std::to_string(std::exchange(more, 0)) + " more of the same");
        }
    }

private:
    /// What stands behind a frame's number; empty for a line that is none.
    static std::string Frame(std::string const & line)
    {
        std::size_t const number = line.find_first_not_of(' ');
        std::size_t const end = line.find_first_not_of("0123456789", number);
        bool const isFrame =
            number != line.npos && end != number && line.compare(std::min(end, line.size()), 3, " 0x") == 0;
        return isFrame ? line.substr(end) : std::string();
    }

    OutputStream & output;
    std::string last;
    std::size_t more = 0;
};

/// The report that is meant; empty if there is none.
path FindReport(std::string const & name)
{
    std::vector<path> const reports = Reports();
    if (name == "last")
    {
        return reports.empty() ? path() : reports.back();
    }
    path const typed = Utf8Path(name);
    for (path const & report : reports)
    {
        if (report.filename() == typed || report.stem() == typed)
        {
            return report;
        }
    }
    std::error_code error;
    return std::filesystem::is_regular_file(typed, error) ? typed : path();
}

} // namespace

int ListCrashReports(Console & console)
{
    NamedOutput output("-", console);
    std::vector<path> const reports = Reports();
    for (path const & report : reports)
    {
        PrintLine(output, Printable(Utf8Name(report.stem())));
        PrintLine(output, "  " + Printable(Field(report, processLabel)));
        PrintLine(output, "  " + Printable(Field(report, whatLabel)));
    }
    if (reports.empty())
    {
        PrintLine(output, "No crash reports in " + Printable(kv::platform::CrashReportFolder()));
    }
    output.Finish();
    return ExitOk;
}

int ShowCrashReport(std::string const & name, bool raw, Console & console)
{
    path const report = FindReport(name);
    std::ifstream file(report, std::ios::binary);
    if (report.empty() || !file)
    {
        Complain(console, "kv crash", "there is no report " + name + "; kv crash lists those that there are");
        return ExitFailed;
    }
    NamedOutput output("-", console);
    std::string line;
    ReportView view(output);
    while (ReadLine(file, line))
    {
        raw ? PrintLine(output, line) : view.Add(line);
    }
    view.Finish();
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
