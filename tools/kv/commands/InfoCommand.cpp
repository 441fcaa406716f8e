#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Info.h>

namespace kv::tools
{

Command AddInfoCommand(CLI::App & program)
{
    auto const options = std::make_shared<InfoOptions>();
    CLI::App * const info = program.add_subcommand("info", "Show what the system knows of files and directories");
    info->add_option("FILE", options->files, "Native paths, or paths with a drive letter and\nbackslashes")
        ->type_size(1)
        ->expected(1, -1)
        ->required();
    info->footer(
        std::string("Times are local, with UTC behind them. The forms of the path are those of the\n"
                    "library: full, canonical (in long names, as the disk spells it), short (8.3),\n"
                    "and as a URL.\n\n"
                    "Example:\n  kv info /usr/bin/env\n\n") +
        exitCodesHelp);
    return {info, [options](Console & console) { return PrintInfo(*options, console); }};
}

} // namespace kv::tools
