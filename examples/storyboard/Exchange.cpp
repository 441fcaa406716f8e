#include <kvcore/examples/storyboard/Commands.h>

#include <functional>
#include <system_error>

#include <kvcore/examples/storyboard/Description.h>
#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/ProjectFile.h>
#include <kvcore/examples/storyboard/RunLog.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/tools/support/FileSource.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/SafeFile.h>
#include <kvcore/tools/support/Text.h>

// What goes to other programs and comes back: descriptions in XML, and web pages.

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

std::string ReadWhole(fs::path const & file)
{
    try
    {
        kv::tools::FileSource source(kv::tools::LibraryPath(file));
        std::string bytes;
        char piece[64 * 1024];
        while (int const size = source.ReadSome(piece, sizeof piece))
        {
            bytes.append(piece, static_cast<std::size_t>(size));
        }
        return bytes;
    }
    catch (StreamBase::Exception const & failure)
    {
        throw SystemFailure(TEXT_CANNOT_READ, file, failure.text.Utf8());
    }
}

/// Into a file, which comes to be whole or not at all, or onto the output if there is no name.
void WriteTo(Context const & context, fs::path const & file, std::function<void(OutputStream &)> const & write)
{
    if (file.empty())
    {
        // The document as it is for a file or another program, and in printable form for a person.
        if (!context.console.outputIsTerminal)
        {
            write(context.console.output);
            return;
        }
        MemoryOutputStream document;
        write(document);
        kv::tools::Print(context.console.output, kv::tools::Presented(context.console, document.GetContent()));
        return;
    }
    std::error_code error;
    if (!fs::is_other(file, error)) // a device or a pipe takes what comes
    {
        CheckSaveTarget(file);
    }
    try
    {
        kv::tools::SafeFile saved(file);
        write(saved.Stream());
        saved.Commit();
        Log(LogStep, "Wrote " + Printable(StoredName(file)));
    }
    catch (StreamBase::Exception const & failure)
    {
        throw SystemFailure(TEXT_CANNOT_WRITE, file, failure.text.Utf8());
    }
}

/// The reason without the line end that it has, and with others that a terminal bears.
[[noreturn]] void FailDescription(fs::path const & file, DescriptionFailure const & failure)
{
    std::string reason = failure.message;
    while (reason.ends_with('\n'))
    {
        reason.pop_back();
    }
    throw Failure{kv::tools::ExitDamaged, Text(TEXT_NO_DESCRIPTION, Printable(StoredName(file)), Printable(reason))};
}

Ptr<Project> LoadDescription(fs::path const & file)
{
    try
    {
        return ReadDescription(ReadWhole(file));
    }
    catch (DescriptionFailure const & failure)
    {
        FailDescription(file, failure);
    }
}

} // namespace

int WriteXml(Context const & context, fs::path const & file, fs::path const & output)
{
    LoadedProject const loaded = LoadProject(file);
    WriteTo(context, output, [&](OutputStream & target) { WriteDescription(*loaded.project, target); });
    return kv::tools::ExitOk;
}

int WritePage(Context const & context, fs::path const & file, fs::path const & output)
{
    LoadedProject const loaded = LoadProject(file);
    try
    {
        std::string const page = DescriptionPage(*loaded.project);
        WriteTo(context, output, [&](OutputStream & target) { kv::tools::Print(target, std::string_view(page)); });
    }
    catch (DescriptionFailure const & failure)
    {
        FailDescription(file, failure);
    }
    return kv::tools::ExitOk;
}

int Check(Context const & context, fs::path const & description)
{
    ProjectCount const count = Count(*LoadDescription(description));
    kv::tools::PrintLine(
        context.console.output,
        Text(
            TEXT_DESCRIBES, Printable(StoredName(description)), Plural(count.folders, TEXT_FOLDER),
            Plural(count.clips, TEXT_CLIP), Plural(count.sources, TEXT_SOURCE)));
    return kv::tools::ExitOk;
}

int Restore(fs::path const & description, fs::path const & file)
{
    CheckSaveTarget(file);
    ProjectSizes const sizes = SaveProject(*LoadDescription(description), file);
    Log(LogStep, "Saved " + Printable(StoredName(file)) + ": " + std::to_string(sizes.file) + " bytes");
    return kv::tools::ExitOk;
}

} // namespace Storyboard
