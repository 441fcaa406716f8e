#include <kvcore/tools/kv/commands/Command.h>

#include <memory>

#include <kvcore/tools/kv/Sum.h>

namespace kv::tools
{

namespace
{

/// What was asked for on the command line.
struct SumArguments
{
    SumOptions sums;
    bool hex = false;
    bool base64 = false;
    bool both = false;
    bool checks = false;
    SumCheckOptions check;
};

int Sum(SumArguments & arguments, Console & console)
{
    if (arguments.checks)
    {
        arguments.check.lists = arguments.sums.files;
        return CheckSums(arguments.check, console);
    }
    arguments.sums.form = arguments.base64 ? SumForm::Base64 : arguments.both ? SumForm::Both : SumForm::Hex;
    return PrintSums(arguments.sums, console);
}

} // namespace

Command AddSumCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<SumArguments>();
    CLI::App * const sum = program.add_subcommand("sum", "Print or check MD5 sums of files");
    sum->add_option(
           "FILE", arguments->sums.files, "The files; - is standard input, the default.\nWith --check: lists of sums")
        ->type_size(1)
        ->expected(0, -1);
    CLI::Option * const hex =
        sum->add_flag("--hex", arguments->hex, "Print sums as 32 hexadecimal digits, the default");
    CLI::Option * const base64 = sum->add_flag("--base64", arguments->base64, "Print sums as 22 Base64 characters");
    CLI::Option * const both = sum->add_flag("--both", arguments->both, "Print both forms");
    hex->excludes(base64)->excludes(both);
    base64->excludes(both);

    CLI::Option * const checks =
        sum->add_flag("-c,--check", arguments->checks, "Check the files that the lists name")->excludes(hex);
    checks->excludes(base64)->excludes(both);
    sum->add_flag("--ignore-missing", arguments->check.ignoreMissing, "Check: pass over files that do not exist")
        ->needs(checks);
    sum->add_flag("-q,--quiet", arguments->check.quiet, "Check: print no OK lines")->needs(checks);
    sum->add_flag("--status", arguments->check.status, "Check: print nothing, only set the exit code")->needs(checks);
    sum->add_flag("--strict", arguments->check.strict, "Check: lines that hold no sum fail it, too")->needs(checks);
    sum->add_flag("-w,--warn", arguments->check.warn, "Check: name each line that holds no sum")->needs(checks);
    sum->footer(
        std::string("A list may come from md5sum (GNU), md5 (BSD), openssl or kv, with sums in\n"
                    "either form. Lists that kv prints can be checked by 'md5sum --check', unless\n"
                    "--base64 or --both was given.\n\n"
                    "Examples:\n"
                    "  kv sum *.dat > list.md5\n"
                    "  kv sum --check list.md5\n\n") +
        exitCodesHelp);
    return {sum, [arguments](Console & console) { return Sum(*arguments, console); }};
}

} // namespace kv::tools
