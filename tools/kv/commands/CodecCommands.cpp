#include <kvcore/tools/kv/commands/Command.h>

#include <algorithm>
#include <memory>

#include <kvcore/tools/kv/Codec.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/support/ExitCodes.h>

namespace kv::tools
{

namespace
{

constexpr char const * chainHelp = R"(A CHAIN lists stages in the order in which data passes when it is encoded:
  deflate[:LEVEL]  compress as one zlib stream (RFC 1950)
  crc              cut into blocks of up to 4088 bytes, each with its length and
                   CRC-32; damage is found at the next block
  base64[:WIDTH]   printable text (RFC 4648) in lines of WIDTH characters
  crypt            complement every byte; hides text from a casual look, no more)";

/// What was asked for on the command line.
struct CodecArguments
{
    CodecOptions options;
    std::string chain;
    std::string level;
    std::string lineWidth;
};

void AddCommonOptions(CLI::App & command, CodecArguments & arguments)
{
    command.add_option("CHAIN", arguments.chain, "The stages, such as deflate,crc,base64")->required();
    command.add_option("-i,--input", arguments.options.input, "Read this file instead of standard input")
        ->type_name("FILE");
    command.add_option("-o,--output", arguments.options.output, "Write this file instead of standard output")
        ->type_name("FILE");
}

void RefuseUnused(
    CodecArguments const & arguments, std::string const & value, std::string const & option, StageKind kind)
{
    std::vector<Stage> const & chain = arguments.options.chain;
    bool const used = std::any_of(chain.begin(), chain.end(), [&](Stage const & stage) { return stage.kind == kind; });
    if (!value.empty() && !used)
    {
        throw UsageError(option + " is for stage " + StageName(kind) + ", which CHAIN does not have");
    }
}

int Encode(CodecArguments & arguments, Console & console)
{
    StageDefaults defaults;
    defaults.level = arguments.level.empty() ? defaults.level : ParseLevel(arguments.level, "--level");
    defaults.lineWidth =
        arguments.lineWidth.empty() ? defaults.lineWidth : ParseLineWidth(arguments.lineWidth, "--line-width");
    arguments.options.chain = ParseChain(arguments.chain, defaults);
    RefuseUnused(arguments, arguments.level, "--level", StageKind::Deflate);
    RefuseUnused(arguments, arguments.lineWidth, "--line-width", StageKind::Base64);
    RunEncode(arguments.options, console);
    return ExitOk;
}

} // namespace

Command AddEncodeCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<CodecArguments>();
    CLI::App * const encode = program.add_subcommand("encode", "Pass data through a chain of stages");
    AddCommonOptions(*encode, *arguments);
    encode
        ->add_option(
            "-l,--level", arguments->level,
            "How hard deflate tries: 0 (not at all) to 9 (most),\nor -1, zlib's own choice, the default")
        ->type_name("N");
    encode
        ->add_option(
            "-w,--line-width", arguments->lineWidth,
            "Characters per line of base64, the default is 76;\nrounded down to a multiple of 4, at least 4;\n0 puts "
            "everything on one line")
        ->type_name("N");
    encode->footer(
        std::string(chainHelp) + "\n\nExample:\n  kv encode deflate,crc,base64 --input clip.dat --output clip.txt\n\n" +
        exitCodesHelp);
    return {encode, [arguments](Console & console) { return Encode(*arguments, console); }};
}

Command AddDecodeCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<CodecArguments>();
    CLI::App * const decode = program.add_subcommand("decode", "Undo 'kv encode' with the same chain");
    AddCommonOptions(*decode, *arguments);
    decode->footer(
        std::string(chainHelp) +
        "\n\nDecoding undoes the stages from the last to the first. Numbers behind the stages\n"
        "may stay; they are not needed.\n\n"
        "Damage ends the decoding with exit code 3. What could be decoded before it goes\n"
        "to standard output; a file of --output stays as it was. Data that was cut off is\n"
        "always noticed in a chain with deflate; without it, a cut between two blocks of\n"
        "crc or two groups of base64 is not. Input without a single byte decodes to no\n"
        "data with every chain.\n\n"
        "Example:\n  kv decode deflate,crc,base64 --input clip.txt --output clip.dat\n\n" +
        exitCodesHelp);
    return {
        decode,
        [arguments](Console & console)
        {
            arguments->options.chain = ParseChain(arguments->chain, {});
            return RunDecode(arguments->options, console);
        }};
}

} // namespace kv::tools
