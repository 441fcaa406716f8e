#include <kvcore/tools/kv/Codec.h>

#include <kvcore/tools/kv/Decode.h>
#include <kvcore/tools/kv/Encode.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Host.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

// On some systems a file that is read cannot be replaced, and the failure would come behind all the work.
void RefuseSameFile(CodecOptions const & options)
{
    if (options.input.empty() || options.output.empty() || options.output == "-" || options.input == "-")
    {
        return;
    }
    if (host::IsSameFile(options.input, options.output))
    {
        throw UsageError("input and output are the same file, " + options.input + "; write to another one");
    }
}

// What became of the data before the damage.
std::string Remainder(NamedOutput const & output, CodecOptions const & options)
{
    if (output.Count() == 0)
    {
        return "nothing was written; is CHAIN the one that the data was encoded with?";
    }
    std::string const good = Counted(output.Count(), "byte") + " before the damage ";
    return output.IsWholeOrNothing()
        ? options.output + " was not written; without --output, the " + good + "go to standard output"
        : "the " + good + "were written";
}

} // namespace

void RunEncode(CodecOptions const & options, Console & console)
{
    NamedInput input(options.input, console);
    RefuseSameFile(options);
    NamedOutput output(options.output, console);
    Encode(options.chain, input, output);
    output.Finish();
}

int RunDecode(CodecOptions const & options, Console & console)
{
    NamedInput input(options.input, console);
    RefuseSameFile(options);
    NamedOutput output(options.output, console);
    try
    {
        Decode(options.chain, input, output);
    }
    catch (DamagedData const & damage)
    {
        if (!output.IsWholeOrNothing())
        {
            output.Finish();
        }
        Complain(console, "kv decode", input.Name() + " is damaged: " + damage.text.Utf8() + " (" + damage.place + ")");
        Complain(console, "kv decode", Remainder(output, options));
        return ExitDamaged;
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
