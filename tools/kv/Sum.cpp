#include <kvcore/tools/kv/Sum.h>

#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <cerrno>

namespace kv::tools
{

namespace
{

constexpr char const * command = "kv sum";

MD5Sum SumOf(std::string const & path, Console & console)
{
    NamedInput input(path, console);
    MD5SumStream sum;
    std::vector<char> block(64 * 1024);
    while (int const size = input.ReadSome(block.data(), static_cast<int>(block.size())))
    {
        sum.Write(block.data(), size);
    }
    return sum.GetMD5Sum();
}

} // namespace

int PrintSums(SumOptions const & options, Console & console)
{
    NamedOutput output("-", console);
    int result = ExitOk;
    std::vector<std::string> const standardInput{"-"};
    for (std::string const & file : options.files.empty() ? standardInput : options.files)
    {
        MD5Sum sum;
        try
        {
            sum = SumOf(file, console);
        }
        catch (IoFailure const & failure)
        {
            Complain(console, command, failure.subject + ": " + failure.text.Utf8());
            result = ExitFailed;
            continue;
        }
        PrintLine(output, Presented(console, FormatSumLine(sum, file, options.form)));
    }
    output.Finish();
    return result;
}

namespace
{

// What a check of one list came to.
struct Tally
{
    std::uint64_t wellFormed = 0;
    std::uint64_t malformed = 0;
    std::uint64_t verified = 0;
    std::uint64_t different = 0;
    std::uint64_t unreadable = 0;
};

class ListCheck
{
public:
    ListCheck(SumCheckOptions const & checkOptions, Console & checkConsole, NamedOutput & checkOutput)
        : options(checkOptions), console(checkConsole), output(checkOutput)
    {
    }

    // True if the list was readable and everything in it is as it should be.
    bool Run(std::string const & path)
    {
        try
        {
            NamedInput list(path, console);
            name = list.Name();
            readsStandardInput = path.empty() || path == "-";
            CheckLines(list);
        }
        catch (OutputFailure const &)
        {
            throw;
        }
        catch (IoFailure const & failure)
        {
            Complain(console, command, failure.subject + ": " + failure.text.Utf8());
            return false;
        }
        Summarise();
        return tally.wellFormed > 0 && tally.different == 0 && tally.unreadable == 0 &&
            (tally.malformed == 0 || !options.strict) && (tally.verified > 0 || !options.ignoreMissing);
    }

private:
    void CheckLines(SourceStream & list)
    {
        LineReader reader(list);
        std::string line;
        for (std::uint64_t number = 1; reader.Next(line); ++number)
        {
            if (line.empty() || line.front() == '#')
            {
                continue;
            }
            std::optional<SumEntry> const entry = ParseSumLine(line);
            // The list itself comes from there: its lines cannot be the data of a file as well.
            if (!entry || (readsStandardInput && entry->name == "-"))
            {
                ++tally.malformed;
                if (options.warn)
                {
                    Complain(
                        console, command, name + ", line " + std::to_string(number) + ": no MD5 sum with a file name");
                }
                continue;
            }
            ++tally.wellFormed;
            CheckFile(*entry);
        }
    }

    void CheckFile(SumEntry const & entry)
    {
        MD5Sum sum;
        try
        {
            sum = SumOf(entry.name, console);
        }
        catch (IoFailure const & failure)
        {
            if (options.ignoreMissing && failure.error == ENOENT)
            {
                return;
            }
            ++tally.unreadable;
            if (!options.status)
            {
                Complain(console, command, failure.subject + ": " + failure.text.Utf8());
            }
            Report(entry.name, "FAILED open or read");
            return;
        }
        if (sum == entry.sum)
        {
            ++tally.verified;
            if (!options.quiet)
            {
                Report(entry.name, "OK");
            }
            return;
        }
        ++tally.different;
        Report(entry.name, "FAILED");
    }

    void Report(std::string const & file, char const * verdict)
    {
        if (!options.status)
        {
            PrintLine(output, DisplayedName(file) + ": " + verdict);
        }
    }

    void Summarise()
    {
        if (tally.wellFormed == 0)
        {
            Complain(console, command, name + ": no line holds an MD5 sum with a file name; is this a list of sums?");
            return;
        }
        if (options.status)
        {
            return;
        }
        Warn(tally.malformed, "line is not", "lines are not", " an MD5 sum with a file name");
        Warn(tally.unreadable, "listed file", "listed files", " could not be read");
        Warn(tally.different, "file does NOT match its sum", "files do NOT match their sums", "");
        if (options.ignoreMissing && tally.verified == 0 && tally.different == 0)
        {
            Complain(console, command, name + ": no file was verified");
        }
    }

    void Warn(std::uint64_t count, char const * one, char const * many, char const * what)
    {
        if (count > 0)
        {
            Complain(
                console, command,
                name + ": WARNING: " + std::to_string(count) + " " + (count == 1 ? one : many) + std::string(what));
        }
    }

    SumCheckOptions const & options;
    Console & console;
    NamedOutput & output;
    std::string name;
    bool readsStandardInput = false;
    Tally tally;
};

} // namespace

int CheckSums(SumCheckOptions const & options, Console & console)
{
    NamedOutput output("-", console);
    bool good = true;
    std::vector<std::string> const standardInput{"-"};
    for (std::string const & list : options.lists.empty() ? standardInput : options.lists)
    {
        good = ListCheck(options, console, output).Run(list) && good;
    }
    output.Finish();
    return good ? ExitOk : ExitFailed;
}

} // namespace kv::tools
