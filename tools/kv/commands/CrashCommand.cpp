#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Crash.h>
#include <kvcore/tools/kv/TestCrash.h>

namespace kv::tools
{

namespace
{

/// What was asked for on the command line.
struct CrashArguments
{
    std::string report;
    std::string kind;
    bool raw = false;
    bool kinds = false;
    bool uncaught = false;
};

int Crash(CrashArguments const & arguments, Console & console)
{
    if (arguments.kinds)
    {
        return ListCrashKinds(console);
    }
    if (!arguments.kind.empty())
    {
        return TestCrash(arguments.kind, arguments.uncaught, console);
    }
    return arguments.report.empty() ? ListCrashReports(console)
                                    : ShowCrashReport(arguments.report, arguments.raw, console);
}

} // namespace

Command AddCrashCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<CrashArguments>();
    CLI::App * const crash = program.add_subcommand("crash", "List and show crash reports, or provoke a fault");
    CLI::Option * const report = crash->add_option(
        "REPORT", arguments->report, "The report to show: its name or path, or last.\nWithout it, all are listed");
    crash->add_flag("--raw", arguments->raw, "Show function names as the linker knows them")->needs(report);
    CLI::Option * const test =
        crash->add_option("--test", arguments->kind, "Provoke a fault of this kind, and catch it")
            ->type_name("KIND")
            ->excludes(report);
    crash->add_flag("--uncaught", arguments->uncaught, "Test: leave the fault to the system, which ends kv")
        ->needs(test);
    crash->add_flag("--kinds", arguments->kinds, "List the kinds of faults")->excludes(report)->excludes(test);
    crash->footer(
        std::string("Reports are written when a program that has an application object meets a fault\n"
                    "in a scope that catches faults. The newest 32 are kept.\n\n"
                    "Examples:\n"
                    "  kv crash --test stack\n"
                    "  kv crash last\n\n") +
        exitCodesHelp);
    return {crash, [arguments](Console & console) { return Crash(*arguments, console); }};
}

} // namespace kv::tools
