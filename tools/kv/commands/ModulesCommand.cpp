#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Modules.h>

namespace kv::tools
{

Command AddModulesCommand(CLI::App & program)
{
    auto const process = std::make_shared<std::string>("self");
    CLI::App * const modules = program.add_subcommand("modules", "List the modules of a process");
    modules->add_option("PROCESS", *process, "The number of a process; this one for \"self\"");
    modules->footer(
        std::string("The program stands first, its libraries follow by address. The version is that of\n"
                    "the product, where a module carries one.\n\n"
                    "Example:\n  kv modules self\n\n") +
        exitCodesHelp);
    return {modules, [process](Console & console) { return ListModules(*process, console); }};
}

} // namespace kv::tools
