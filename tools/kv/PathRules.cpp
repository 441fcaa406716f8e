#include <kvcore/tools/kv/PathRules.h>

#include <algorithm>
#include <climits>
#include <stdexcept>

#include <kvcore/files/File.h>
#include <kvcore/frame/DateTime.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/LocalTime.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

/// The arguments of one call, as the rules take them, and what they make of them.
class Call
{
public:
    Call(std::vector<std::string> const & given, bool nativePaths) : texts(given), native(nativePaths) {}

    /// A path: as it stands, or native.
    String Path(std::size_t i) const
    {
        return native ? String(kv::platform::PathFromNative(texts[i])) : Text(i);
    }
    /// A text; empty if it was left out.
    String Text(std::size_t i) const
    {
        return i < texts.size() ? String::FromUtf8(texts[i]) : String();
    }
    unsigned int Number(std::size_t i) const
    {
        unsigned int number = 0;
        if (!Text(i).ParseNum(number) || Text(i).empty())
        {
            throw UsageError("'" + texts[i] + "' is not a number");
        }
        return number;
    }
    bool Has(std::size_t i) const
    {
        return i < texts.size();
    }

    /// A result that is a path.
    std::string Shown(String const & path) const
    {
        std::string const shown = native ? kv::platform::PathToNative(path) : std::string();
        return shown.empty() ? path.Utf8() : shown;
    }

private:
    std::vector<std::string> const & texts;
    bool const native;
};

std::string Shown(bool result)
{
    return result ? "true" : "false";
}

std::string Shown(DateTime const & time)
{
    return LocalTime(time) + " (" + time.ToString().Utf8() + ")";
}

/// A rule that takes a path, and gives one or another text.
template <String (*Function)(String const &)>
std::string OfPath(Call const & call)
{
    return call.Shown(Function(call.Path(0)));
}
template <String (*Function)(String const &)>
std::string TextOfPath(Call const & call)
{
    return Function(call.Path(0)).Utf8();
}
template <bool (*Function)(String const &)>
std::string IsPath(Call const & call)
{
    return Shown(Function(call.Path(0)));
}
template <__int64 (*Function)(String const &)>
std::string NumberOfPath(Call const & call)
{
    return std::to_string(Function(call.Path(0)));
}

std::string LastWriteTime(Call const & call)
{
    FILETIME time = {};
    return File::GetLastWriteTime(call.Path(0), time) ? Shown(DateTime(time)) : std::string();
}

std::string Cleaned(Call const & call)
{
    String path = call.Path(0);
    String const replacement = call.Has(1) ? call.Text(1) : String(TEXT("_"));
    if (replacement.size() != 1)
    {
        throw UsageError("the replacement is to be one character");
    }
    File::CleanFilename(path, replacement[0]);
    return call.Shown(path);
}

std::string NextPath(Call const & call)
{
    unsigned int counter = call.Has(3) ? call.Number(3) : 0;
    return call.Shown(
        File::GetNextFilePath(call.Path(0), call.Text(1), call.Text(2), call.Has(3) ? &counter : nullptr, nullptr));
}

std::string DriveInfo(Call const & call)
{
    File::DriveInfo info;
    bool const known = File::GetDriveInfo(call.Path(0), info);
    return Shown(known) + ", root \"" + info.root.Utf8() + "\", " + std::to_string(info.sectorsPerCluster) +
        " sectors of " + std::to_string(info.bytesPerSector) + " bytes in a cluster, clusters " +
        std::to_string(info.freeClusters) + " of " + std::to_string(info.totalClusters) + " free, bytes " +
        std::to_string(info.freeBytesAvailable) + " of " + std::to_string(info.totalBytes) + " free for you";
}

struct Rule
{
    char const * name;
    char const * arguments; // optional ones in brackets
    std::size_t fewest;
    std::size_t most;
    std::string (*call)(Call const &);
};

// What changes the disk is not among them.
Rule const rules[] = {
    {"IsDriveRoot", "PATH", 1, 1, IsPath<File::IsDriveRoot>},
    {"IsPathAbsolute", "PATH", 1, 1, IsPath<File::IsPathAbsolute>},
    {"GetDirname", "PATH", 1, 1, OfPath<File::GetDirname>},
    {"GetBasename", "PATH [SUFFIX]", 1, 2,
     [](Call const & call) { return call.Shown(File::GetBasename(call.Path(0), call.Text(1))); }},
    {"GetFileExtension", "PATH", 1, 1, TextOfPath<File::GetFileExtension>},
    {"GetFileTitleW", "PATH", 1, 1, OfPath<File::GetFileTitleW>},
    {"GetFilePathWithoutExtension", "PATH", 1, 1, OfPath<File::GetFilePathWithoutExtension>},
    {"CutExtension", "PATH [EXTENSION]", 1, 2,
     [](Call const & call) { return call.Shown(File::CutExtension(call.Path(0), call.Text(1))); }},
    {"SwitchExtension", "PATH EXTENSION", 2, 2,
     [](Call const & call) { return call.Shown(File::SwitchExtension(call.Path(0), call.Text(1))); }},
    {"MakePath", "DIRECTORY NAME", 2, 2,
     [](Call const & call) { return call.Shown(File::MakePath(call.Path(0), call.Path(1))); }},
    {"GetFullPath", "PATH", 1, 1, OfPath<File::GetFullPath>},
    {"GetShortPath", "PATH", 1, 1, OfPath<File::GetShortPath>},
    {"GetCanonicalPath", "PATH", 1, 1, OfPath<File::GetCanonicalPath>},
    {"CompactPath", "PATH CHARACTERS", 2, 2,
     [](Call const & call) { return call.Shown(File::CompactPath(call.Path(0), call.Number(1))); }},
    {"CleanFilename", "PATH [REPLACEMENT]", 1, 2, Cleaned},
    {"PathToURL", "PATH", 1, 1, TextOfPath<File::PathToURL>},
    {"URLToPath", "URL", 1, 1, [](Call const & call) { return call.Shown(File::URLToPath(call.Text(0))); }},
    {"GetNextFilePath", "DIRECTORY NAME EXTENSION [COUNTER]", 3, 4, NextPath},
    {"GetRandomFilePath", "DIRECTORY NAME EXTENSION", 3, 3,
     [](Call const & call) { return call.Shown(File::GetRandomFilePath(call.Path(0), call.Text(1), call.Text(2))); }},
    {"FileExists", "PATH", 1, 1, IsPath<File::FileExists>},
    {"IsDirectory", "PATH", 1, 1, IsPath<File::IsDirectory>},
    {"GetFileSize", "PATH", 1, 1, NumberOfPath<File::GetFileSize>},
    {"GetSizeRecursive", "PATH", 1, 1, NumberOfPath<File::GetSizeRecursive>},
    {"GetLastWriteTime", "PATH", 1, 1, LastWriteTime},
    {"GetDriveTypeW", "PATH", 1, 1,
     [](Call const & call) { return std::to_string(File::GetDriveTypeW(call.Path(0))); }},
    {"GetDriveInfo", "PATH", 1, 1, DriveInfo},
    {"IsNTFSPath", "PATH", 1, 1, IsPath<File::IsNTFSPath>},
    {"GetTempDirectory", "", 0, 0, [](Call const & call) { return call.Shown(File::GetTempDirectory()); }},
    {"GetApplicationDataDirectory", "", 0, 0,
     [](Call const & call) { return call.Shown(File::GetApplicationDataDirectory()); }},
};

std::string Folded(std::string name)
{
    std::transform(
        name.begin(), name.end(), name.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return name;
}

Rule const & FindRule(std::string const & name)
{
    for (Rule const & rule : rules)
    {
        std::string const known = Folded(rule.name);
        if (Folded(name) == known || Folded(name) + 'w' == known)
        {
            return rule;
        }
    }
    throw UsageError("unknown rule '" + name + "'; kv path --list shows all");
}

} // namespace

int PrintPathRule(PathRuleOptions const & options, Console & console)
{
    Rule const & rule = FindRule(options.rule);
    if (options.arguments.size() < rule.fewest || options.arguments.size() > rule.most)
    {
        std::string const takes = rule.most == 0 ? "no arguments" : rule.arguments;
        throw UsageError(std::string(rule.name) + " takes " + takes);
    }
    NamedOutput output("-", console);
    try
    {
        PrintLine(output, Presented(console, rule.call(Call(options.arguments, options.native))));
    }
    catch (std::length_error const & failure)
    {
        Complain(console, "kv path", std::string(rule.name) + " fails: " + failure.what());
        return ExitFailed;
    }
    output.Finish();
    return ExitOk;
}

int ListPathRules(Console & console)
{
    NamedOutput output("-", console);
    for (Rule const & rule : rules)
    {
        PrintLine(output, rule.name + std::string(rule.most != 0 ? " " : "") + rule.arguments);
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
