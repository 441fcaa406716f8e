#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Url.h>

namespace kv::tools
{

Command AddUrlCommand(CLI::App & program)
{
    auto const options = std::make_shared<UrlOptions>();
    CLI::App * const url = program.add_subcommand("url", "Turn paths into file URLs, and file URLs into paths");
    url->add_option("PATH|URL", options->texts, "What begins with a scheme, as in file:, is a URL,\nall else a path")
        ->type_size(1)
        ->expected(1, -1)
        ->required();
    url->add_flag("--win32", options->win32, "Show paths with drive letters and backslashes");
    url->add_flag("-0,--null", options->endsInNul, "For programs: each result as it is, a NUL behind it");
    url->footer(
        std::string("Bytes above 7F hexadecimal stand in the URLs as they are, as the library makes\n"
                    "them.\n\n"
                    "Examples:\n"
                    "  kv url 'c:\\clips\\my film.avi'\n"
                    "  kv url file:///c:/clips/my%20film.avi\n\n") +
        exitCodesHelp);
    return {url, [options](Console & console) { return PrintUrls(*options, console); }};
}

} // namespace kv::tools
