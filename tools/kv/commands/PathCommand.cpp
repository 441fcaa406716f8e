#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/PathRules.h>

namespace kv::tools
{

namespace
{

/// What was asked for on the command line.
struct PathArguments
{
    PathRuleOptions rule;
    bool list = false;
};

int Path(PathArguments const & arguments, Console & console)
{
    if (arguments.list)
    {
        return ListPathRules(console);
    }
    if (arguments.rule.rule.empty())
    {
        throw UsageError("the name of a rule is missing; kv path --list shows all");
    }
    return PrintPathRule(arguments.rule, console);
}

} // namespace

Command AddPathCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<PathArguments>();
    CLI::App * const path = program.add_subcommand("path", "Show what one of the library's path rules gives");
    path->add_option("RULE", arguments->rule.rule, "The rule, such as GetBasename; in any case");
    path->add_option("ARG", arguments->rule.arguments, "Its arguments; those at the end may have a default")
        ->type_size(1)
        ->expected(0, -1);
    path->add_flag(
        "-n,--native", arguments->rule.native,
        "Paths are native ones; otherwise they are taken and\nshown as they stand, with backslashes");
    path->add_flag("-l,--list", arguments->list, "List all rules with their arguments");
    path->footer(
        std::string("Rules that change something on the disk are not among them.\n\n"
                    "Examples:\n"
                    "  kv path GetBasename 'c:\\clips\\a.avi' .avi\n"
                    "  kv path --native GetCanonicalPath /usr/share/../SHARE\n\n") +
        exitCodesHelp);
    return {path, [arguments](Console & console) { return Path(*arguments, console); }};
}

} // namespace kv::tools
