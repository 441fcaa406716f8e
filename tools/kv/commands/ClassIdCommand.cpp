#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/ClassId.h>

namespace kv::tools
{

namespace
{

/// What was asked for on the command line.
struct ClassIdArguments
{
    ClassIdOptions ids;
    bool keepsKeywords = false;
};

} // namespace

Command AddClassIdCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<ClassIdArguments>();
    CLI::App * const classId =
        program.add_subcommand("classid", "Print the identifiers under which classes are stored");
    classId
        ->add_option(
            "NAME", arguments->ids.names,
            "Class names as the source spells them, with their\nnamespaces; - reads one name per line from "
            "standard\ninput")
        ->required();
    classId->add_flag("--no-strip", arguments->keepsKeywords, "Leave \"class \" and \"struct \" in the names");
    classId->footer(
        std::string("Each line has the identifier in hexadecimal and in decimal, and the name after\n"
                    "\"class \" and \"struct \" were removed from it, template arguments included.\n\n"
                    "Example:\n  kv classid XPDib \"class Box<struct Item>\"\n\n") +
        exitCodesHelp);
    return {
        classId,
        [arguments](Console & console)
        {
            arguments->ids.strip = !arguments->keepsKeywords;
            return PrintClassIds(arguments->ids, console);
        }};
}

} // namespace kv::tools
