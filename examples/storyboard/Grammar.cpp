#include <kvcore/examples/storyboard/Grammar.h>

#include <algorithm>
#include <sstream>

#include <CLI/CLI.hpp>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/Settings.h>
#include <kvcore/examples/storyboard/SourceJobs.h>
#include <kvcore/examples/storyboard/Texts.h>

namespace Storyboard
{

namespace
{

/// A whole number of a range.
int Number(std::string const & name, std::string const & value, int least, int most)
{
    int number = least - 1;
    if (value.empty() || !String::FromUtf8(value).ParseNum(number) || number < least || number > most)
    {
        throw Failure{kv::tools::ExitUsage, Text(TEXT_NUMBER_RANGE, name, std::to_string(least), std::to_string(most))};
    }
    return number;
}

/// The command line's grammar, with its help in the user's language.
class Grammar
{
public:
    Grammar()
    {
        Describe(app);
        app.require_subcommand(1);
        app.footer(Text(TEXT_HELP_EXIT_CODES));
        app.set_version_flag("--version", "storyboard " KVCORE_VERSION, Text(TEXT_HELP_VERSION))
            ->group(Text(TEXT_OPTIONS));
        Add(app, "--language", language, TEXT_HELP_LANGUAGE, "en|de");
        Add(app, "--log", request.logFile, TEXT_HELP_LOG, "FILE");
        Add(app, "--settings", request.settingsFile, TEXT_HELP_SETTINGS_FILE, "FILE");
        AddCommands();
    }

    Request Parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end()); // the parser takes them from the back
        try
        {
            app.parse(std::move(arguments));
        }
        catch (CLI::Success const & asked)
        {
            std::ostringstream text;
            app.exit(asked, text, text);
            throw Information{text.str()};
        }
        catch (CLI::ParseError const & error)
        {
            throw Failure{kv::tools::ExitUsage, Text(TEXT_SEE_HELP, Problem(error))};
        }
        Complete();
        return request;
    }

private:
    /// Gives a command what all have.
    void Describe(CLI::App & command)
    {
        command.allow_windows_style_options(false); // a path may begin with a slash on every system
        command.fallthrough();                      // the program's options may follow the command
        command.set_help_flag("-h,--help", Text(TEXT_HELP_HELP))->group(Text(TEXT_OPTIONS));
        command.get_formatter()->label("Usage", Text(TEXT_USAGE));
        command.get_formatter()->label("Positionals", Text(TEXT_POSITIONALS));
        command.get_formatter()->label("OPTIONS", Text(TEXT_USAGE_OPTIONS));
        command.get_formatter()->label("SUBCOMMAND", Text(TEXT_USAGE_COMMAND));
        command.get_formatter()->label("REQUIRED", Text(TEXT_REQUIRED));
    }
    CLI::App & AddCommand(char const * name, unsigned help)
    {
        CLI::App & command = *app.add_subcommand(name, Text(help))->group(Text(TEXT_COMMANDS));
        Describe(command);
        return command;
    }
    static CLI::Option & Add(CLI::App & command, char const * name, std::string & value, unsigned help)
    {
        return *command.add_option(name, value, Text(help))->group(Text(TEXT_OPTIONS))->type_name("");
    }
    static CLI::Option &
    Add(CLI::App & command, char const * name, std::string & value, unsigned help, char const * type)
    {
        return *Add(command, name, value, help).type_name(type);
    }
    static void AddFlag(CLI::App & command, char const * names, std::optional<bool> & value, unsigned help)
    {
        auto const set = [&value](std::int64_t count) { value = count > 0; };
        command.add_flag_function(names, set, Text(help))->group(Text(TEXT_OPTIONS));
    }
    void AddReading(CLI::App & command)
    {
        Add(command, "-j,--jobs", jobs, TEXT_HELP_JOBS, "COUNT");
        Add(command, "--fault-on", request.faultName, TEXT_HELP_FAULT, "NAME");
    }
    void AddCommands()
    {
        CLI::App & make = AddCommand("make", TEXT_HELP_MAKE);
        Add(make, "FOLDER", request.folder, TEXT_HELP_MAKE_FOLDER).required();
        Add(make, "FILE", request.file, TEXT_HELP_MAKE_FILE).required();
        AddFlag(make, "-q,--quiet,!--no-quiet", request.quiet, TEXT_HELP_QUIET_MAKE);
        AddReading(make);

        CLI::App & show = AddCommand("show", TEXT_HELP_SHOW);
        Add(show, "FILE", request.file, TEXT_HELP_FILE).required();
        AddShowing(show);

        CLI::App & verify = AddCommand("verify", TEXT_HELP_VERIFY);
        Add(verify, "FILE", request.file, TEXT_HELP_FILE).required();
        Add(verify, "FOLDER", request.folder, TEXT_HELP_VERIFY_FOLDER).required();
        AddFlag(verify, "-q,--quiet,!--no-quiet", request.quiet, TEXT_HELP_QUIET_VERIFY);
        AddReading(verify);

        AddShowing(AddCommand("last", TEXT_HELP_LAST));
        AddExchange();

        CLI::App & settings = AddCommand("settings", TEXT_HELP_SETTINGS);
        Add(settings, "NAME", request.setting, TEXT_HELP_SETTING);
        value = &Add(settings, "VALUE", settingValue, TEXT_HELP_VALUE);
        settings.footer(Text(TEXT_HELP_SETTINGS_END));
    }
    void AddExchange()
    {
        CLI::App & describe = AddCommand("describe", TEXT_HELP_DESCRIBE);
        Add(describe, "FILE", request.file, TEXT_HELP_FILE).required();
        Add(describe, "-o,--output", request.output, TEXT_HELP_OUTPUT, "FILE");

        CLI::App & check = AddCommand("check", TEXT_HELP_CHECK);
        Add(check, "DESCRIPTION", request.description, TEXT_HELP_DESCRIPTION).required();

        CLI::App & restore = AddCommand("restore", TEXT_HELP_RESTORE);
        Add(restore, "DESCRIPTION", request.description, TEXT_HELP_DESCRIPTION).required();
        Add(restore, "FILE", request.file, TEXT_HELP_MAKE_FILE).required();

        CLI::App & page = AddCommand("page", TEXT_HELP_PAGE);
        Add(page, "FILE", request.file, TEXT_HELP_FILE).required();
        Add(page, "-o,--output", request.output, TEXT_HELP_OUTPUT, "FILE");
    }
    void AddShowing(CLI::App & command)
    {
        AddFlag(command, "-s,--summary,!--no-summary", request.summary, TEXT_HELP_SUMMARY);
        Add(command, "-w,--width", width, TEXT_HELP_WIDTH, "COLUMNS");
    }

    /// What the parser leaves to be understood.
    void Complete()
    {
        request.command = app.get_subcommands().front()->get_name();
        if (value->count() > 0)
        {
            request.value = settingValue;
        }
        if (!language.empty() && language != "en" && language != "de")
        {
            throw Failure{kv::tools::ExitUsage, Text(TEXT_NO_LANGUAGE, Printable(language))};
        }
        if (!jobs.empty())
        {
            request.jobs = Number("--jobs", jobs, 1, ReadingOptions::maxJobs);
        }
        if (!width.empty())
        {
            request.width = Number("--width", width, 0, Settings::maxWidth);
        }
    }

    /// The parser's complaint in the user's language, as far as there are words for it.
    std::string Problem(CLI::ParseError const & error) const
    {
        std::vector<std::string> const unknown = app.remaining(true);
        std::string const first = unknown.empty() ? "" : Printable(unknown.front());
        std::vector<CLI::App *> const commands = app.get_subcommands();
        if (commands.empty() && error.get_name() == "RequiredError")
        {
            return unknown.empty() ? Text(TEXT_NO_COMMAND)
                                   : Text(first.starts_with('-') ? TEXT_NO_SUCH_OPTION : TEXT_NO_SUCH_COMMAND, first);
        }
        if (!unknown.empty())
        {
            return Text(first.starts_with('-') ? TEXT_NO_SUCH_OPTION : TEXT_UNEXPECTED, first);
        }
        if (error.get_name() == "RequiredError")
        {
            return Text(TEXT_IS_MISSING, Missing(*commands.front()));
        }
        std::string const message = error.what();
        return error.get_name() == "ArgumentMismatch" ? Text(TEXT_NEEDS_VALUE, message.substr(0, message.find(':')))
                                                      : Printable(message);
    }
    static std::string Missing(CLI::App const & command)
    {
        for (CLI::Option const * const option : command.get_options())
        {
            if (option->get_required() && option->count() == 0)
            {
                return option->get_name();
            }
        }
        return {};
    }

    Request request;
    std::string language;
    std::string jobs;
    std::string width;
    std::string settingValue;
    CLI::Option const * value = nullptr;
    CLI::App app{Text(TEXT_HELP_ABOUT), "storyboard"};
};

} // namespace

std::string NamedLanguage(std::vector<std::string> const & arguments)
{
    std::string const option = "--language";
    for (std::size_t i = 0; i != arguments.size(); ++i)
    {
        if (arguments[i] == option && i + 1 != arguments.size())
        {
            return arguments[i + 1];
        }
        if (arguments[i].starts_with(option + '='))
        {
            return arguments[i].substr(option.size() + 1);
        }
    }
    return {};
}

Request ParseArguments(std::vector<std::string> arguments)
{
    return Grammar().Parse(std::move(arguments));
}

} // namespace Storyboard
