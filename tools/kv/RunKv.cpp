#include <kvcore/tools/kv/RunKv.h>

#include <kvcore/tools/kv/ClassId.h>
#include <kvcore/tools/kv/Codec.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/Sum.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <new>

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

constexpr char const * exitCodes = R"(Exit codes:
  0  done
  1  some files could not be read or do not match, or a name has no identifier
  2  the command line is wrong
  3  the data is damaged, or was encoded with another chain
  4  reading or writing failed)";

// Options and their descriptions side by side; what takes a value names it in capitals.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(23);
        label("Positionals", "Arguments");
    }

    std::string make_usage(CLI::App const * app, std::string name) const override
    {
        std::string const command = name.empty() ? app->get_name() : name;
        std::string usage = "\nUsage: " + command;
        if (!app->get_subcommands({}).empty())
        {
            return usage + " COMMAND ...\n       " + command + " help [COMMAND]\n";
        }
        if (!app->get_options([](CLI::Option const * option) { return option->nonpositional(); }).empty())
        {
            usage += " [OPTIONS]";
        }
        for (CLI::Option const * const option :
             app->get_options([](CLI::Option const * candidate) { return candidate->get_positional(); }))
        {
            std::string const argument = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
            usage += option->get_required() ? " " + argument : " [" + argument + "]";
        }
        return usage + "\n";
    }

    std::string make_option_opts(CLI::Option const * option) const override
    {
        return option->get_type_size() == 0 || option->get_positional() ? "" : " " + option->get_type_name();
    }

    std::string make_option_name(CLI::Option const * option, bool isPositional) const override
    {
        std::string name = CLI::Formatter::make_option_name(option, isPositional);
        std::size_t const comma = name.find(',');
        return comma == std::string::npos ? name : name.insert(comma + 1, " ");
    }

    std::string make_subcommands(CLI::App const * app, CLI::AppFormatMode) const override
    {
        std::string list;
        for (CLI::App const * const command : app->get_subcommands([](CLI::App const *) { return true; }))
        {
            list += make_subcommand(command);
        }
        if (!list.empty())
        {
            list.insert(0, "\nCommands:\n");
        }
        return list;
    }

    std::string make_footer(CLI::App const * app) const override
    {
        return app->get_footer() + "\n";
    }

    std::string make_option_usage(CLI::Option const * option) const override
    {
        return option->get_name(true);
    }
};

class Program
{
public:
    Program();

    int Run(std::vector<std::string> arguments, Console & console);

private:
    void AddCodec(CLI::App & command, CodecOptions & options, char const * read, char const * written);
    void AddEncode();
    void AddDecode();
    void AddSum();
    void AddClassId();
    void AddHelp();

    void RefuseUnused(std::string const & value, std::string const & option, StageKind kind) const;
    int Dispatch(Console & console);
    int RunSum(Console & console);
    int ShowHelp(Console & console);
    [[nodiscard]] std::string HelpOf(std::string const & name);
    [[nodiscard]] std::string CurrentCommand() const;

    CLI::App app{
        "Encodes and decodes streams of bytes in KVCore's formats,\nand computes MD5 sums and class identifiers."};
    CLI::App * encode = nullptr;
    CLI::App * decode = nullptr;
    CLI::App * sum = nullptr;
    CLI::App * classId = nullptr;
    CLI::App * help = nullptr;

    CodecOptions codec;
    std::string chain;
    std::string level;
    std::string lineWidth;
    SumOptions sums;
    bool sumsInHex = false;
    bool sumsInBase64 = false;
    bool sumsInBoth = false;
    bool checksSums = false;
    SumCheckOptions check;
    ClassIdOptions classIds;
    bool keepsKeywords = false;
    std::string topic;
};

Program::Program()
{
    app.name("kv");
    app.formatter(std::make_shared<HelpFormatter>());
    // One command line for every target: a slash begins a path.
    app.allow_windows_style_options(false);
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", "kv " KVCORE_VERSION " (KVCore)", "Show the version");
    app.require_subcommand(0, 1);
    app.footer(exitCodes);
    AddEncode();
    AddDecode();
    AddSum();
    AddClassId();
    AddHelp();
}

void Program::AddCodec(CLI::App & command, CodecOptions & options, char const * read, char const * written)
{
    command.add_option("CHAIN", chain, "The stages, such as deflate,crc,base64")->required();
    command.add_option("-i,--input", options.input, read)->type_name("FILE");
    command.add_option("-o,--output", options.output, written)->type_name("FILE");
}

void Program::AddEncode()
{
    encode = app.add_subcommand("encode", "Pass data through a chain of stages");
    AddCodec(*encode, codec, "Read this file instead of standard input", "Write this file instead of standard output");
    encode
        ->add_option(
            "-l,--level", level,
            "How hard deflate tries: 0 (not at all) to 9 (most),\nor -1, zlib's own choice, the default")
        ->type_name("N");
    encode
        ->add_option(
            "-w,--line-width", lineWidth,
            "Characters per line of base64, the default is 76;\nrounded down to a multiple of 4, at least 4;\n0 puts "
            "everything on one line")
        ->type_name("N");
    encode->footer(
        std::string(chainHelp) + "\n\nExample:\n  kv encode deflate,crc,base64 --input clip.dat --output clip.txt\n\n" +
        exitCodes);
}

void Program::AddDecode()
{
    decode = app.add_subcommand("decode", "Undo 'kv encode' with the same chain");
    AddCodec(*decode, codec, "Read this file instead of standard input", "Write this file instead of standard output");
    decode->footer(
        std::string(chainHelp) +
        "\n\nDecoding undoes the stages from the last to the first. Numbers behind the stages\n"
        "may stay; they are not needed.\n\n"
        "Damage ends the decoding with exit code 3. What could be decoded before it has\n"
        "then been written. Data that was cut off is always noticed in a chain with\n"
        "deflate; without it, a cut between two blocks of crc or two groups of base64 is\n"
        "not. Input without a single byte decodes to no data with every chain.\n\n"
        "Example:\n  kv decode deflate,crc,base64 --input clip.txt --output clip.dat\n\n" +
        exitCodes);
}

void Program::AddSum()
{
    sum = app.add_subcommand("sum", "Print or check MD5 sums of files");
    sum->add_option("FILE", sums.files, "The files; - is standard input, the default.\nWith --check: lists of sums")
        ->type_size(1)
        ->expected(0, -1);
    CLI::Option * const hex = sum->add_flag("--hex", sumsInHex, "Print sums as 32 hexadecimal digits, the default");
    CLI::Option * const base64 = sum->add_flag("--base64", sumsInBase64, "Print sums as 22 Base64 characters");
    CLI::Option * const both = sum->add_flag("--both", sumsInBoth, "Print both forms");
    hex->excludes(base64)->excludes(both);
    base64->excludes(both);

    CLI::Option * const checks =
        sum->add_flag("-c,--check", checksSums, "Check the files that the lists name")->excludes(hex);
    checks->excludes(base64)->excludes(both);
    sum->add_flag("--ignore-missing", check.ignoreMissing, "Check: pass over files that do not exist")->needs(checks);
    sum->add_flag("-q,--quiet", check.quiet, "Check: print no OK lines")->needs(checks);
    sum->add_flag("--status", check.status, "Check: print nothing, only set the exit code")->needs(checks);
    sum->add_flag("--strict", check.strict, "Check: lines that hold no sum fail it, too")->needs(checks);
    sum->add_flag("-w,--warn", check.warn, "Check: name each line that holds no sum")->needs(checks);
    sum->footer(
        std::string("A list may come from md5sum (GNU), md5 (BSD), openssl or kv, with sums in\n"
                    "either form. Lists that kv prints can be checked by 'md5sum --check', unless\n"
                    "--base64 or --both was given.\n\n"
                    "Examples:\n"
                    "  kv sum *.dat > list.md5\n"
                    "  kv sum --check list.md5\n\n") +
        exitCodes);
}

void Program::AddClassId()
{
    classId = app.add_subcommand("classid", "Print the identifiers under which classes are stored");
    classId
        ->add_option(
            "NAME", classIds.names,
            "Class names as the source spells them, with their\nnamespaces; - reads one name per line from "
            "standard\ninput")
        ->required();
    classId->add_flag("--no-strip", keepsKeywords, "Leave \"class \" and \"struct \" in the names");
    classId->footer(
        std::string("Each line has the identifier in hexadecimal and in decimal, and the name after\n"
                    "\"class \" and \"struct \" were removed from it, template arguments included.\n\n"
                    "Example:\n  kv classid XPDib \"class Box<struct Item>\"\n\n") +
        exitCodes);
}

void Program::AddHelp()
{
    help = app.add_subcommand("help", "Show the help of a command");
    help->add_option("COMMAND", topic, "The command; all of them are listed if it is left out");
}

std::string Program::CurrentCommand() const
{
    std::vector<CLI::App *> const parsed = app.get_subcommands();
    return parsed.empty() ? "kv" : "kv " + parsed.front()->get_name();
}

int Program::Run(std::vector<std::string> arguments, Console & console)
{
    std::string usageError;
    try
    {
        // The parser takes its arguments from the back.
        std::reverse(arguments.begin(), arguments.end());
        app.parse(std::move(arguments));
        return Dispatch(console);
    }
    catch (CLI::CallForHelp const &)
    {
        NamedOutput output("-", console);
        Print(output, std::string_view(app.help()));
        output.Finish();
        return ExitOk;
    }
    catch (CLI::CallForVersion const & version)
    {
        NamedOutput output("-", console);
        PrintLine(output, std::string_view(version.what()));
        output.Finish();
        return ExitOk;
    }
    catch (CLI::ParseError const & error)
    {
        usageError = error.what();
    }
    catch (UsageError const & error)
    {
        usageError = error.what();
    }
    std::string const command = CurrentCommand();
    Complain(console, command, usageError);
    Complain(console, command, "try 'kv help" + command.substr(2) + "'");
    return ExitUsage;
}

void Program::RefuseUnused(std::string const & value, std::string const & option, StageKind kind) const
{
    bool const used =
        std::any_of(codec.chain.begin(), codec.chain.end(), [&](Stage const & stage) { return stage.kind == kind; });
    if (!value.empty() && !used)
    {
        throw UsageError(option + " is for stage " + StageName(kind) + ", which CHAIN does not have");
    }
}

int Program::Dispatch(Console & console)
{
    if (encode->parsed())
    {
        StageDefaults defaults;
        defaults.level = level.empty() ? defaults.level : ParseLevel(level, "--level");
        defaults.lineWidth = lineWidth.empty() ? defaults.lineWidth : ParseLineWidth(lineWidth, "--line-width");
        codec.chain = ParseChain(chain, defaults);
        RefuseUnused(level, "--level", StageKind::Deflate);
        RefuseUnused(lineWidth, "--line-width", StageKind::Base64);
        RunEncode(codec, console);
        return ExitOk;
    }
    if (decode->parsed())
    {
        codec.chain = ParseChain(chain, {});
        return RunDecode(codec, console);
    }
    if (sum->parsed())
    {
        return RunSum(console);
    }
    if (classId->parsed())
    {
        classIds.strip = !keepsKeywords;
        return PrintClassIds(classIds, console);
    }
    return ShowHelp(console);
}

int Program::RunSum(Console & console)
{
    if (checksSums)
    {
        check.lists = sums.files;
        return CheckSums(check, console);
    }
    sums.form = sumsInBase64 ? SumForm::Base64 : sumsInBoth ? SumForm::Both : SumForm::Hex;
    return PrintSums(sums, console);
}

std::string Program::HelpOf(std::string const & name)
{
    std::string known;
    for (CLI::App const * const command : app.get_subcommands([](CLI::App const *) { return true; }))
    {
        if (command->get_name() == name)
        {
            return command->help("kv");
        }
        known += (known.empty() ? "" : ", ") + command->get_name();
    }
    throw UsageError("no command is called \"" + name + "\"; known commands are " + known);
}

int Program::ShowHelp(Console & console)
{
    if (!help->parsed())
    {
        Print(console.error, std::string_view(app.help()));
        return ExitUsage;
    }
    // Not app.help(), which shows the help of the command that was given: this one.
    std::string text = app.get_formatter()->make_help(&app, "kv", CLI::AppFormatMode::Normal);
    if (!topic.empty())
    {
        text = HelpOf(topic);
    }
    NamedOutput output("-", console);
    Print(output, std::string_view(text));
    output.Finish();
    return ExitOk;
}

} // namespace

int RunKv(std::vector<std::string> const & arguments, Console & console)
{
    try
    {
        return Program().Run(arguments, console);
    }
    catch (ClosedPipe const &)
    {
        return ExitClosedPipe;
    }
    catch (IoFailure const & failure)
    {
        Complain(console, "kv", failure.subject + ": " + failure.text.Utf8());
    }
    catch (StreamBase::Exception const & failure)
    {
        Complain(console, "kv", "unexpected failure: " + failure.text.Utf8());
    }
    catch (std::bad_alloc const &)
    {
        Complain(console, "kv", "out of memory");
    }
    return ExitIo;
}

} // namespace kv::tools
