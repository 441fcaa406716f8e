#include <kvcore/tools/kv/commands/Command.h>

#include <kvcore/tools/kv/Find.h>
#include <kvcore/tools/kv/Remove.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace kv::tools
{

Command AddFindCommand(CLI::App & app)
{
    auto const options = std::make_shared<FindOptions>();
    CLI::App * const find = app.add_subcommand("find", "List what is below a directory");
    find->add_option("DIR", options->directory, "The directory, in this system's form or with a drive")->required();
    find->add_option("MASK", options->mask, "The names to list, with * and ?; all of them if left out");
    CLI::Option * const tabs =
        find->add_flag("--tab,--machine", options->tabs, "Fields between tabs, times in UTC, paths escaped");
    find->add_flag("-0,--null", options->endsInNul, "Paths alone, as they are, a NUL behind each")->excludes(tabs);
    find->add_flag("--total", options->total, "Sum up on standard error at the end");
    find->add_flag("--win32", options->win32, "Show Win32 paths");
    find->footer(
        std::string("A line has attributes (d directory, l link, r read-only, h hidden, s system,\n"
                    "a archive, c compressed), size in bytes, local time of the last write, path.\n"
                    "DIR itself is not listed. Links are listed and not followed. With --tab, paths\n"
                    "have \\\\, \\t, \\n and \\r for backslash, tab and line ends.\n\n"
                    "Example:\n  kv find clips \"*.avi\" --total\n\n") +
        exitCodesHelp);
    return {find, [options](Console & console) { return FindFiles(*options, console); }};
}

Command AddSizeCommand(CLI::App & app)
{
    auto const options = std::make_shared<SizeOptions>();
    CLI::App * const size = app.add_subcommand("size", "Sum up files and directories");
    size->add_option("PATH", options->paths, "Files, and directories with all that is below them")->required();
    size->add_flag("--tab,--machine", options->tabs, "Bytes, files, directories, links and path between tabs");
    size->footer(std::string("Links are counted and not followed, and have no size here.\n\n") + exitCodesHelp);
    return {size, [options](Console & console) { return PrintSizes(*options, console); }};
}

Command AddRemoveCommand(CLI::App & app)
{
    auto const options = std::make_shared<RemoveOptions>();
    CLI::App * const remove = app.add_subcommand("remove", "Remove files below a directory");
    remove->add_option("DIR", options->directory, "The directory, which stays itself")->required();
    remove->add_option("MASK", options->mask, "The names to remove, with * and ?")->required();
    remove->add_flag(
        "-d,--directories", options->directories, "Remove directories that match, too, if they are\nempty then");
    remove->add_flag("-y,--yes", options->sure, "Do not ask");
    remove->add_flag("-n,--dry-run", options->dryRun, "List what would be removed, and remove nothing");
    remove->footer(
        std::string("Links are removed as links; what they lead to stays. A link to a directory\n"
                    "counts as a directory.\n\n"
                    "Example:\n  kv remove clips \"*.tmp\"\n\n") +
        exitCodesHelp);
    return {remove, [options](Console & console) { return RemoveFiles(*options, console); }};
}

} // namespace kv::tools
