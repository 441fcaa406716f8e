#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Log.h>

namespace kv::tools
{

Command AddLogCommand(CLI::App & program)
{
    auto const options = std::make_shared<LogOptions>();
    CLI::App * const log = program.add_subcommand("log", "Show a log file, or follow it while it is written");
    log->add_option("FILE", options->file, "The log; it may be open in the program that writes it")->required();
    log->add_flag("-f,--follow", options->follow, "Go on with the lines that come, until interrupted");
    log->add_option("-m,--module", options->modules, "Only lines of this module; may be given again")
        ->type_name("NAME")
        ->allow_extra_args(false);
    log->add_option("--since", options->since, "Only lines from this time of day on, HH:MM or HH:MM:SS")
        ->type_name("TIME");
    log->add_option("--until", options->until, "Only lines up to this time of day")->type_name("TIME");
    log->add_option("--color", options->colour, "auto (on a terminal), always or never")
        ->type_name("WHEN")
        ->check(CLI::Validator(CLI::IsMember({"auto", "always", "never"})).description(""));
    log->footer(
        std::string("A log shows ten places of a module's name; longer names may be given whole.\n\n"
                    "Examples:\n"
                    "  kv log render.log --module storyboard --since 14:30\n"
                    "  kv log --follow render.log\n\n") +
        exitCodesHelp);
    return {log, [options](Console & console) { return ShowLog(*options, console); }};
}

} // namespace kv::tools
