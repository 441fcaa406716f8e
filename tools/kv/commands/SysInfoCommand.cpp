#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/SystemReport.h>

namespace kv::tools
{

Command AddSysInfoCommand(CLI::App & program)
{
    auto const options = std::make_shared<SystemReportOptions>();
    CLI::App * const sysInfo = program.add_subcommand("sysinfo", "Show what the library knows of the system");
    sysInfo->add_flag("--json", options->asJson, "Print one JSON object");
    sysInfo->add_flag("--code-pages", options->withCodePages, "List the code pages");
    sysInfo->add_option("--env", options->variables, "Show an environment variable, too; may be repeated")
        ->type_name("NAME")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    sysInfo->footer(
        std::string("The system is the edition of Windows that programs are told; the number behind it\n"
                    "is the one that they compare.\n\n"
                    "Example:\n  kv sysinfo --env HOME\n\n") +
        exitCodesHelp);
    return {sysInfo, [options](Console & console) { return PrintSystemReport(*options, console); }};
}

} // namespace kv::tools
