#include <kvcore/tools/kv/Xml.h>

#include <functional>
#include <string_view>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/XmlLayout.h>
#include <kvcore/tools/kv/XmlText.h>
#include <kvcore/tools/support/ComUse.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/SafeFile.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

constexpr char program[] = "kv xml";

/// What ends the command: the text for the user, and the exit code.
struct XmlFailure
{
    int code;
    std::string text;
};

/// "page.xml:3:14: The entity is not declared.", the form that editors jump by.
std::string Located(std::string const & name, XmlProblem const & problem)
{
    std::string text = name;
    text += problem.line > 0 ? ':' + std::to_string(problem.line) : "";
    text += problem.line > 0 && problem.column > 0 ? ':' + std::to_string(problem.column) : "";
    return text + ": " + problem.reason;
}

std::string NameOf(std::string const & file)
{
    return file == "-" ? "standard input" : file;
}

std::string ReadWhole(std::string const & file, Console & console)
{
    NamedInput input(file, console);
    std::string bytes;
    std::string piece(64 * 1024, '\0');
    while (int const size = input.ReadSome(piece.data(), static_cast<int>(piece.size())))
    {
        bytes.append(piece, 0, static_cast<std::size_t>(size));
    }
    return bytes;
}

XmlText Load(std::string const & file, Console & console)
{
    std::string const bytes = ReadWhole(file, console);
    try
    {
        return XmlText(bytes);
    }
    catch (XmlProblem const & problem)
    {
        throw XmlFailure{ExitDamaged, Located(NameOf(file), problem)};
    }
}

/// Takes the result in pieces of whole characters.
using Pieces = std::function<void(std::string_view)>;

/// Writes what `make` gives, to the file or the console that was asked for. What has a NUL behind each result is for
/// machines, and is not made printable.
void GiveMade(XmlOptions const & options, Console & console, std::function<void(Pieces const &)> const & make)
{
    if (options.output.empty() || options.output == "-")
    {
        NamedOutput output("-", console);
        make(
            [&](std::string_view piece)
            {
                bool const raw = options.nul || !console.outputIsTerminal;
                Print(output, raw ? piece : std::string_view(Presented(console, std::string(piece))));
            });
        output.Finish();
        return;
    }
    try
    {
        SafeFile target(TypedNativePath(options.output));
        make([&](std::string_view piece) { Print(target.Stream(), piece); });
        target.Commit();
    }
    catch (IoException const & failure)
    {
        throw OutputFailure(failure, "cannot write " + options.output);
    }
}

void Give(std::string const & text, XmlOptions const & options, Console & console)
{
    GiveMade(options, console, [&](Pieces const & write) { write(text); });
}

template <typename Action>
int Guarded(Console & console, Action action)
{
    ComUse const com;
    try
    {
        return action();
    }
    catch (XmlFailure const & failure)
    {
        Complain(console, program, failure.text);
        return failure.code;
    }
    catch (XMLParser::Exception const & failure)
    {
        Complain(console, program, failure.message.Utf8());
        return ExitDamaged;
    }
}

XmlLayout LayoutOf(XmlOptions const & options)
{
    constexpr std::size_t most = 16;
    XmlLayout layout;
    layout.compact = options.compact;
    if (options.indent == "tab")
    {
        layout.unit = "\t";
        return layout;
    }
    std::size_t blanks = 0;
    for (char const c : options.indent)
    {
        blanks = c >= '0' && c <= '9' && blanks <= most ? blanks * 10 + static_cast<std::size_t>(c - '0') : most + 1;
    }
    if (options.indent.empty() || blanks > most)
    {
        throw UsageError("an indent is a number of blanks from 0 to 16, or tab; this is \"" + options.indent + "\"");
    }
    layout.unit = std::string(blanks, ' ');
    return layout;
}

XmlText::Prefixes PrefixesOf(XmlOptions const & options)
{
    XmlText::Prefixes prefixes;
    for (std::string const & each : options.prefixes)
    {
        std::size_t const sign = each.find('=');
        if (sign == 0 || sign == std::string::npos || each.find_first_of(" \t\r\n'\"<>&:") < sign)
        {
            throw UsageError("a prefix is given as PREFIX=NAMESPACE; this is \"" + each + "\"");
        }
        prefixes.emplace_back(each.substr(0, sign), each.substr(sign + 1));
    }
    return prefixes;
}

std::vector<XmlText::Found> Found(XmlText & document, XmlOptions const & options)
{
    try
    {
        document.UsePrefixes(PrefixesOf(options));
        return document.Select(options.with);
    }
    catch (XmlProblem const & problem)
    {
        throw UsageError("\"" + options.with + "\": " + problem.reason);
    }
}

} // namespace

int FormatXml(XmlOptions const & options, Console & console)
{
    return Guarded(
        console,
        [&]
        {
            XmlLayout const layout = LayoutOf(options);
            std::string xml = Load(options.file, console).GetXML().Utf8();
            std::erase(xml, '\r'); // one that belongs to the text is a reference
            GiveMade(options, console, [&](Pieces const & write) { LayOut(xml, layout, write); });
            return ExitOk;
        });
}

int QueryXml(XmlOptions const & options, Console & console)
{
    return Guarded(
        console,
        [&]
        {
            XmlText document = Load(options.file, console);
            std::vector<XmlText::Found> const found = Found(document, options);
            std::string text;
            for (XmlText::Found const & each : found)
            {
                text += (options.xml ? each.xml : each.text) + (options.nul ? '\0' : '\n');
            }
            Give(options.count ? std::to_string(found.size()) + '\n' : text, options, console);
            return options.count || !found.empty() ? ExitOk : ExitFailed;
        });
}

int ValidateXml(XmlOptions const & options, Console & console)
{
    return Guarded(
        console,
        [&]
        {
            XmlText const schema = Load(options.with, console);
            XmlText const document = Load(options.file, console);
            try
            {
                document.Validate(schema);
                return ExitOk;
            }
            catch (XmlText::WrongSchema const & failure)
            {
                throw XmlFailure{ExitDamaged, Located(NameOf(options.with), failure.problem)};
            }
            catch (XmlProblem const & problem)
            {
                throw XmlFailure{ExitFailed, Located(NameOf(options.file), problem)};
            }
        });
}

int TransformXml(XmlOptions const & options, Console & console)
{
    return Guarded(
        console,
        [&]
        {
            XmlText const styleSheet = Load(options.with, console);
            XmlText const document = Load(options.file, console);
            try
            {
                Give(document.Transform(styleSheet), options, console);
                return ExitOk;
            }
            catch (XmlProblem const & problem)
            {
                throw XmlFailure{ExitDamaged, Located(NameOf(options.with), problem)};
            }
        });
}

} // namespace kv::tools
