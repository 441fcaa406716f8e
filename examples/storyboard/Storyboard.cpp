#include <kvcore/examples/storyboard/Storyboard.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <sstream>

#include <CLI/CLI.hpp>

#include <kvcore/examples/storyboard/Commands.h>
#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Settings.h>
#include <kvcore/tools/support/StdioStreams.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

constexpr char const * exitCodes = R"(Exit codes:
  0   done; verify: everything in the project is as it was
  2   the command line makes no sense
  3   the project file is damaged; the message has the failure's text and code
  4   something could not be read or written; verify: a source could not be read
  5   make: done, but some files could not be read and are left out
  10  verify: sources have changed, none is missing
  11  verify: sources are missing; others may have changed, too
Where several apply to verify, 4 goes before 11, and 11 before 10.)";

struct Options
{
    std::string folder;
    std::string file;
    std::string settingsFile;
    std::string setting;
    std::string value;
    Settings chosen; // what the command line says, where it says something
};

/// The command line's grammar.
class Grammar
{
public:
    Grammar()
    {
        app.require_subcommand(1);
        // A path may begin with a slash on every system. The commands were added with the parser's own setting.
        for (CLI::App * const command : {&app, make, show, verify, settings})
        {
            command->allow_windows_style_options(false);
        }
        app.set_version_flag("--version", "storyboard " KVCORE_VERSION);
        app.add_option(
               "--settings", options.settingsFile, "The settings' file, before the command; else the user's own")
            ->type_name("FILE");
        app.footer(exitCodes);

        make->add_option("FOLDER", options.folder, "The folder; everything in it becomes a clip")->required();
        make->add_option("FILE", options.file, "The project to make; one that exists is replaced")->required();
        AddQuiet(*make, "No progress, no summary");

        show->add_option("FILE", options.file, "The project")->required();
        summary = show->add_flag(
            "-s,--summary,!--no-summary", options.chosen.summary, "Collections and totals, without clips and sources");
        width = show->add_option(
                        "-w,--width", options.chosen.width,
                        "Columns to fit the tables in, 0 for no limit; else those of the terminal")
                    ->check(CLI::Range(0, 100'000).description(""))
                    ->type_name("COLUMNS");

        verify->add_option("FILE", options.file, "The project")->required();
        verify->add_option("FOLDER", options.folder, "The folder it was made of, wherever it is now")->required();
        AddQuiet(*verify, "No progress");

        settings->add_option("NAME", options.setting, "progress.quiet, show.summary or show.width; else all are shown");
        value = settings->add_option("VALUE", options.value, "Its new value; 0 or 1, and for the width 0 to 100000");
        settings->footer("What the command line leaves open is as the settings have it. They are a profile file\n"
                         "of sections [progress] and [show], which can be edited by hand: comments and all other\n"
                         "lines stay.");
    }

    void Parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        app.parse(std::move(arguments));
    }

    int Run(Context & context)
    {
        String const path = SettingsPath(options.settingsFile);
        if (settings->parsed())
        {
            return RunSettings(context.console, path, options.setting, options.value, value->count() > 0);
        }
        Settings kept = ReadSettings(path);
        bool const saysQuiet = make->count("--quiet") + verify->count("--quiet") > 0;
        kept.quiet = saysQuiet ? options.chosen.quiet : kept.quiet;
        kept.summary = summary->count() > 0 ? options.chosen.summary : kept.summary;
        kept.width = width->count() > 0 ? options.chosen.width : kept.width;
        context.loudness = kept.quiet ? Progress::Loudness::Quiet : Progress::Loudness::Normal;
        fs::path const file = NativePath(options.file);
        fs::path const folder = NativePath(options.folder);
        if (make->parsed())
        {
            return Make(context, folder, file);
        }
        if (verify->parsed())
        {
            return Verify(context, file, folder);
        }
        int const columns = kept.width >= 0 ? kept.width : context.screen.outputWidth;
        Detail const detail = kept.summary ? Detail::TotalsOnly : Detail::Everything;
        return Show(context, file, detail, static_cast<std::size_t>(columns));
    }

    CLI::App app{
        "Keeps what is in a folder as a project of bins and clips, and tells later what has changed.", "storyboard"};

private:
    void AddQuiet(CLI::App & command, char const * help)
    {
        command.add_flag("-q,--quiet,!--no-quiet", options.chosen.quiet, help);
    }

    Options options;
    CLI::App * const make = app.add_subcommand("make", "Make a project FILE of what is in a FOLDER");
    CLI::App * const show = app.add_subcommand("show", "Show what is in a project FILE");
    CLI::App * const verify = app.add_subcommand("verify", "Compare a project FILE with a FOLDER on disk");
    CLI::App * const settings = app.add_subcommand("settings", "Show or set what the command line leaves open");
    CLI::Option const * summary = nullptr;
    CLI::Option const * width = nullptr;
    CLI::Option const * value = nullptr;
};

/// Help and version go to the output, complaints to the error stream.
int PrintParseResult(Grammar const & grammar, CLI::ParseError const & result, kv::tools::Console & console)
{
    std::ostringstream output;
    std::ostringstream error;
    int const code = grammar.app.exit(result, output, error);
    kv::tools::Print(console.output, std::string_view(output.str()));
    if (code == 0)
    {
        return kv::tools::ExitOk;
    }
    std::string problem = result.what();
    if (grammar.app.get_subcommands().empty() && result.get_name() == "RequiredError")
    {
        std::vector<std::string> const unknown = grammar.app.remaining();
        problem = unknown.empty()              ? "a command is missing: make, show, verify or settings"
            : unknown.front().starts_with('-') ? "no such option: " + Printable(unknown.front())
                                               : "no command is called " + Printable(unknown.front());
    }
    kv::tools::Complain(console, "storyboard", problem + "; storyboard --help tells more");
    return kv::tools::ExitUsage;
}

} // namespace

int RunStoryboard(std::vector<std::string> const & arguments, kv::tools::Console & console, Screen const & screen)
{
    using kv::tools::Complain;
    try
    {
        Grammar grammar;
        try
        {
            grammar.Parse(arguments);
        }
        catch (CLI::ParseError const & result)
        {
            return PrintParseResult(grammar, result, console);
        }
        Context context{console, screen, Progress::Loudness::Normal};
        return grammar.Run(context);
    }
    catch (Failure const & failure)
    {
        Complain(console, "storyboard", failure.message);
        return failure.exitCode;
    }
    catch (kv::tools::IoException const & failure)
    {
        if (failure.error == EPIPE)
        {
            return kv::tools::ExitClosedPipe;
        }
        Complain(console, "storyboard", "cannot write the output: " + failure.text.Utf8());
        return kv::tools::ExitIo;
    }
    catch (StreamBase::Exception const & failure)
    {
        Complain(console, "storyboard", "cannot write the output: " + failure.text.Utf8());
        return kv::tools::ExitIo;
    }
    catch (std::exception const & failure)
    {
        Complain(console, "storyboard", std::string("cannot go on: ") + failure.what());
        return kv::tools::ExitIo;
    }
}

} // namespace Storyboard
