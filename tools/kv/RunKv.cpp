#include <kvcore/tools/kv/RunKv.h>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/commands/Command.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <new>

namespace kv::tools
{

char const * const exitCodesHelp = R"(Exit codes:
  0  done
  1  some files could not be read or do not match, or a name has no identifier
  2  the command line is wrong
  3  the data is damaged, or was encoded with another chain
  4  reading or writing failed)";

namespace
{

// Options and their descriptions side by side; what takes a value names it in capitals.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(23);
        label("Positionals", "Arguments");
    }

    std::string make_usage(CLI::App const * app, std::string name) const override
    {
        std::string const command = name.empty() ? app->get_name() : name;
        std::string usage = "\nUsage: " + command;
        if (!app->get_subcommands({}).empty())
        {
            return usage + " COMMAND ...\n       " + command + " help [COMMAND]\n";
        }
        if (!app->get_options([](CLI::Option const * option) { return option->nonpositional(); }).empty())
        {
            usage += " [OPTIONS]";
        }
        for (CLI::Option const * const option :
             app->get_options([](CLI::Option const * candidate)
                              { return candidate->get_positional() && !candidate->get_group().empty(); }))
        {
            std::string const argument = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
            usage += option->get_required() ? " " + argument : " [" + argument + "]";
        }
        return usage + "\n";
    }

    std::string make_option_opts(CLI::Option const * option) const override
    {
        return option->get_type_size() == 0 || option->get_positional() ? "" : " " + option->get_type_name();
    }

    std::string make_option_name(CLI::Option const * option, bool isPositional) const override
    {
        std::string name = CLI::Formatter::make_option_name(option, isPositional);
        std::size_t const comma = name.find(',');
        return comma == std::string::npos ? name : name.insert(comma + 1, " ");
    }

    std::string make_subcommands(CLI::App const * app, CLI::AppFormatMode) const override
    {
        std::string list;
        for (CLI::App const * const command : app->get_subcommands([](CLI::App const *) { return true; }))
        {
            list += make_subcommand(command);
        }
        if (!list.empty())
        {
            list.insert(0, "\nCommands:\n");
        }
        return list;
    }

    std::string make_footer(CLI::App const * app) const override
    {
        return app->get_footer() + "\n";
    }

    std::string make_option_usage(CLI::Option const * option) const override
    {
        return option->get_name(true);
    }
};

/// In the order of the help text.
constexpr AddCommand addCommands[] = {
    AddEncodeCommand,  AddDecodeCommand, AddSumCommand,     AddClassIdCommand, AddFindCommand,
    AddSizeCommand,    AddRemoveCommand, AddInfoCommand,    AddPathCommand,    AddUrlCommand,
    AddCatCommand,     AddLogCommand,    AddIniCommand,     AddRegCommand,     AddResourcesCommand,
    AddModulesCommand, AddCrashCommand,  AddSysInfoCommand, AddXmlCommand,
};

class Program
{
public:
    Program();

    int Run(std::vector<std::string> arguments, Console & console);

private:
    void AddHelp();
    int Dispatch(Console & console);
    int ShowHelp(Console & console);
    [[nodiscard]] std::string HelpOf(std::string const & name);
    [[nodiscard]] std::string CurrentCommand() const;

    CLI::App app{"Encodes and decodes streams of bytes in KVCore's formats, computes MD5 sums and\nclass identifiers, "
                 "and works with files and paths."};
    std::vector<Command> commands;
    CLI::App * help = nullptr;
    std::string topic;
};

Program::Program()
{
    app.name("kv");
    app.formatter(std::make_shared<HelpFormatter>());
    // One command line for every target: a slash begins a path.
    app.allow_windows_style_options(false);
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", "kv " KVCORE_VERSION " (KVCore)", "Show the version");
    app.require_subcommand(0, 1);
    app.footer(exitCodesHelp);
    for (AddCommand const add : addCommands)
    {
        commands.push_back(add(app));
    }
    AddHelp();
}

void Program::AddHelp()
{
    help = app.add_subcommand("help", "Show the help of a command");
    help->add_option("COMMAND", topic, "The command; all of them are listed if it is left out");
}

std::string Program::CurrentCommand() const
{
    std::vector<CLI::App *> const parsed = app.get_subcommands();
    return parsed.empty() ? "kv" : "kv " + parsed.front()->get_name();
}

int Program::Run(std::vector<std::string> arguments, Console & console)
{
    std::string usageError;
    try
    {
        // The parser takes its arguments from the back.
        std::reverse(arguments.begin(), arguments.end());
        app.parse(std::move(arguments));
        return Dispatch(console);
    }
    catch (CLI::CallForHelp const &)
    {
        NamedOutput output("-", console);
        Print(output, std::string_view(app.help()));
        output.Finish();
        return ExitOk;
    }
    catch (CLI::CallForVersion const & version)
    {
        NamedOutput output("-", console);
        PrintLine(output, std::string_view(version.what()));
        output.Finish();
        return ExitOk;
    }
    catch (CLI::ParseError const & error)
    {
        usageError = error.what();
    }
    catch (UsageError const & error)
    {
        usageError = error.what();
    }
    std::string const command = CurrentCommand();
    Complain(console, command, usageError);
    Complain(console, command, "try 'kv help" + command.substr(2) + "'");
    return ExitUsage;
}

int Program::Dispatch(Console & console)
{
    for (Command const & command : commands)
    {
        if (command.grammar->parsed())
        {
            return command.run(console);
        }
    }
    return ShowHelp(console);
}

std::string Program::HelpOf(std::string const & name)
{
    std::string known;
    for (CLI::App const * const command : app.get_subcommands([](CLI::App const *) { return true; }))
    {
        if (command->get_name() == name)
        {
            return command->help("kv");
        }
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    throw UsageError("unknown command '" + name + "'; known are " + known);
}

int Program::ShowHelp(Console & console)
{
    if (!help->parsed())
    {
        Print(console.error, std::string_view(app.help()));
        return ExitUsage;
    }
    // Not app.help(), which shows the help of the command that was given: this one.
    std::string text = app.get_formatter()->make_help(&app, "kv", CLI::AppFormatMode::Normal);
    if (!topic.empty())
    {
        text = HelpOf(topic);
    }
    NamedOutput output("-", console);
    Print(output, std::string_view(text));
    output.Finish();
    return ExitOk;
}

} // namespace

int RunKv(std::vector<std::string> const & arguments, Console & console)
{
    try
    {
        return Program().Run(arguments, console);
    }
    catch (ClosedPipe const &)
    {
        return ExitClosedPipe;
    }
    catch (IoFailure const & failure)
    {
        Complain(console, "kv", failure.subject + ": " + failure.text.Utf8());
    }
    catch (StreamBase::Exception const & failure)
    {
        Complain(console, "kv", "unexpected failure: " + failure.text.Utf8());
    }
    catch (std::bad_alloc const &)
    {
        Complain(console, "kv", "out of memory");
    }
    return ExitIo;
}

} // namespace kv::tools
