#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Resources.h>

namespace kv::tools
{

Command AddResourcesCommand(CLI::App & program)
{
    auto const options = std::make_shared<ResourcesOptions>();
    CLI::App * const resources = program.add_subcommand("resources", "Show the resources of a program or library");
    resources->add_option("FILE", options->file, "A library or program of this system, or of Windows")->required();
    resources->add_flag("--strings", options->strings, "Show the strings, by language");
    resources->add_flag("--dialogs", options->dialogs, "Draw the dialogs, and list their controls");
    resources->add_flag("--version-block", options->version, "Show the version block");
    resources->add_option("-l,--language", options->language, "Of these, only this language, such as 0409")
        ->type_name("LANG");
    resources
        ->add_option(
            "-x,--extract", options->extract, "Write a resource, TYPE/NAME or TYPE/NAME/LANG,\nas it is stored")
        ->type_name("NAME");
    resources->add_option("-o,--output", options->output, "Where that goes; the standard output if it is left out")
        ->type_name("FILE");
    resources->footer(
        std::string("Without an option, all resources are listed. Types have the names of the list, or\n"
                    "their numbers.\n\n"
                    "Example:\n  kv resources german.lng --strings\n\n") +
        exitCodesHelp);
    return {resources, [options](Console & console) { return ShowResources(*options, console); }};
}

} // namespace kv::tools
