#include <kvcore/tools/kv/commands/Command.h>

#include <limits>
#include <memory>

#include <kvcore/tools/kv/Cat.h>

namespace kv::tools
{

Command AddCatCommand(CLI::App & program)
{
    auto const options = std::make_shared<CatOptions>();
    CLI::App * const cat = program.add_subcommand("cat", "Write files, or a part of them, as one");
    cat->add_option("FILE", options->files, "The files, in the order in which their bytes follow")
        ->type_size(1)
        ->expected(1, -1)
        ->required();
    CLI::Range const number(std::int64_t(0), std::numeric_limits<std::int64_t>::max());
    cat->add_option("--offset", options->offset, "Leave out so many bytes at the beginning of it all")
        ->type_name("BYTES")
        ->check(CLI::Validator(number).description(""));
    cat->add_option("--length", options->length, "Write at most so many bytes")
        ->type_name("BYTES")
        ->check(CLI::Validator(number).description(""));
    cat->footer(
        std::string("Example:\n  kv cat film.001 film.002 film.003 --offset 4096 --length 512 > head.dat\n\n") +
        exitCodesHelp);
    return {cat, [options](Console & console) { return PrintFiles(*options, console); }};
}

} // namespace kv::tools
