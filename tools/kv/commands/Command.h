#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// One command of kv: its part of the command line, and what it does once that was parsed.
struct Command
{
    CLI::App * grammar;
    /// An exit code. Throws UsageError for what the grammar cannot tell, and the failures of NamedStreams.h.
    std::function<int(Console &)> run;
};

/// Adds a command to the program's command line. The options that it parses live as long as `run`.
using AddCommand = Command (*)(CLI::App & program);

Command AddEncodeCommand(CLI::App & program);
Command AddDecodeCommand(CLI::App & program);
Command AddSumCommand(CLI::App & program);
Command AddClassIdCommand(CLI::App & program);
Command AddFindCommand(CLI::App & program);
Command AddSizeCommand(CLI::App & program);
Command AddRemoveCommand(CLI::App & program);
Command AddInfoCommand(CLI::App & program);
Command AddPathCommand(CLI::App & program);
Command AddUrlCommand(CLI::App & program);
Command AddCatCommand(CLI::App & program);
Command AddLogCommand(CLI::App & program);
Command AddIniCommand(CLI::App & program);
Command AddRegCommand(CLI::App & program);
Command AddResourcesCommand(CLI::App & program);
Command AddModulesCommand(CLI::App & program);
Command AddCrashCommand(CLI::App & program);
Command AddSysInfoCommand(CLI::App & program);
Command AddXmlCommand(CLI::App & program);

/// The exit codes that all commands share, for the end of a help text.
extern char const * const exitCodesHelp;

} // namespace kv::tools
