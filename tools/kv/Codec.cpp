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

// Opening the output empties it, so it must not be what is about to be read.
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
        output.Finish();
        Complain(console, "kv decode", input.Name() + " is damaged: " + damage.text.Utf8() + " (" + damage.place + ")");
        Complain(
            console, "kv decode",
            output.Count() > 0 ? "the " + Counted(output.Count(), "byte") + " before the damage were written"
                               : "nothing was written; is CHAIN the one that the data was encoded with?");
        return ExitDamaged;
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
