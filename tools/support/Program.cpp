#include <kvcore/tools/support/Program.h>

#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Host.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/StdioStreams.h>
#include <kvcore/tools/support/Terminal.h>
#include <kvcore/tools/support/Text.h>

#include <cerrno>

namespace kv::tools
{

void Complain(Console & console, std::string_view program, std::string_view text)
{
    try
    {
        PrintLine(console.error, std::string(program) + ": " + Printable(text));
    }
    catch (StreamBase::Exception const &)
    {
        // The exit code still tells.
    }
}

std::string Presented(Console const & console, std::string text)
{
    return console.outputIsTerminal ? Printable(text, Backslashes::Kept, Spaces::Lines) : text;
}

int RunProgram(int count, char ** values, std::string_view name, ProgramFunction function)
{
    host::PrepareStandardStreams();
    StdioInputStream input(StandardStream::Input);
    StdioOutputStream output(StandardStream::Output);
    StdioOutputStream error(StandardStream::Error);
    Console console{input, output, error, IsTerminal(StandardStream::Input), IsTerminal(StandardStream::Output)};

    int const result = function(host::Arguments(count, values), console);
    try
    {
        output.Close();
    }
    catch (IoException const & failure)
    {
        if (failure.error == EPIPE)
        {
            return ExitClosedPipe;
        }
        if (result != ExitIo)
        {
            Complain(console, name, "cannot write standard output: " + failure.text.Utf8());
        }
        return ExitIo;
    }
    return result;
}

} // namespace kv::tools
