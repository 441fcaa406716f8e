#include <kvcore/tools/kv/Find.h>

#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/kv/TreeWalk.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/LocalTime.h>
#include <kvcore/tools/support/Text.h>

#include <kvcore/files/File.h>

namespace kv::tools
{

namespace
{

// What a tree amounts to. Links count as themselves, without a size.
struct Totals
{
    void Add(FileData const & data)
    {
        if (data.IsLink())
        {
            ++links;
        }
        else if (data.IsDirectory())
        {
            ++directories;
        }
        else
        {
            ++files;
            bytes += static_cast<std::uint64_t>(data.GetFileSize());
        }
    }

    std::uint64_t files = 0;
    std::uint64_t directories = 0;
    std::uint64_t links = 0;
    std::uint64_t bytes = 0;
};

std::string CountedDirectories(std::uint64_t count)
{
    return std::to_string(count) + (count == 1 ? " directory" : " directories");
}

std::string Describe(Totals const & totals)
{
    std::string const shortForm = totals.bytes < 1024 ? "" : " (" + HumanSize(totals.bytes) + ")";
    return Counted(totals.bytes, "byte") + shortForm + " in " + Counted(totals.files, "file") + ", " +
        CountedDirectories(totals.directories) + ", " + Counted(totals.links, "link");
}

// One letter for each attribute that is set, at a place of its own.
std::string AttributeLetters(FileData const & data)
{
    std::string letters = "-------";
    bool const set[] = {data.IsDirectory(), data.IsLink(),     data.IsReadOnly(),  data.IsHidden(),
                        data.IsSystem(),    data.IsArchived(), data.IsCompressed()};
    for (std::size_t i = 0; i < std::size(set); ++i)
    {
        letters[i] = set[i] ? "dlrhsac"[i] : '-';
    }
    return letters;
}

// Sizes are for files; a directory's and a link's are the file system's own business.
std::string SizeOf(FileData const & data)
{
    return data.IsDirectory() || data.IsLink() ? "-" : std::to_string(data.GetFileSize());
}

// The path as a field of a line: what would end the field or the line is written out.
std::string Escaped(std::string const & path)
{
    std::string escaped;
    escaped.reserve(path.size());
    for (char const c : path)
    {
        switch (c)
        {
        case '\\':
            escaped += "\\\\";
            break;
        case '\t':
            escaped += "\\t";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string LineFor(FileData const & data, std::string const & path, bool tabs)
{
    std::string line = AttributeLetters(data);
    std::string const size = SizeOf(data);
    if (tabs)
    {
        return line + "\t" + size + "\t" + data.GetLastWriteTime().ToString().Utf8() + "\t" + Escaped(path);
    }
    line.append(size.size() < 15 ? 15 - size.size() : 1, ' ');
    std::string time = LocalTime(data.GetLastWriteTime());
    time.resize(std::max<std::size_t>(time.size(), 19), ' ');
    return line + size + "  " + time + "  " + DisplayedName(path);
}

} // namespace

int FindFiles(FindOptions const & options, Console & console)
{
    TreePath const root(options.directory);
    if (!File::IsDirectory(root.library))
    {
        bool const isFile = File::FileExists(root.library);
        Complain(
            console, "kv find",
            isFile ? DisplayedName(root.shown) + " is a file; kv info tells of one"
                   : LastFailure("find the directory", root.shown));
        return ExitFailed;
    }
    NamedOutput output("-", console);
    Totals totals;
    bool const complete = WalkTree(
        root, options.mask, "kv find", console,
        [&](TreeEntry const & entry)
        {
            totals.Add(entry.data);
            std::string const path = options.win32 ? entry.path.library.Utf8() : entry.path.shown;
            if (options.endsInNul)
            {
                Print(output, std::string_view(path.c_str(), path.size() + 1));
                return;
            }
            PrintLine(output, LineFor(entry.data, path, options.tabs));
        });
    output.Finish();
    if (options.total)
    {
        Complain(console, "kv find", Describe(totals));
    }
    return complete ? ExitOk : ExitFailed;
}

namespace
{

// A single file, or all that is below a directory. False if something could not be read.
bool Measure(TreePath const & path, Console & console, Totals & totals)
{
    if (!File::FileExists(path.library))
    {
        Complain(console, "kv size", LastFailure("find", path.shown));
        return false;
    }
    if (!File::IsDirectory(path.library))
    {
        totals.files = 1;
        totals.bytes = static_cast<std::uint64_t>(File::GetFileSize(path.library));
        return true;
    }
    return WalkTree(path, "*", "kv size", console, [&](TreeEntry const & entry) { totals.Add(entry.data); });
}

} // namespace

int PrintSizes(SizeOptions const & options, Console & console)
{
    NamedOutput output("-", console);
    bool complete = true;
    for (std::string const & typed : options.paths)
    {
        TreePath const path(typed);
        Totals totals;
        complete = Measure(path, console, totals) && complete;
        if (options.tabs)
        {
            PrintLine(
                output,
                std::to_string(totals.bytes) + "\t" + std::to_string(totals.files) + "\t" +
                    std::to_string(totals.directories) + "\t" + std::to_string(totals.links) + "\t" +
                    Escaped(path.shown));
            continue;
        }
        PrintLine(output, DisplayedName(path.shown) + ": " + Describe(totals));
    }
    output.Finish();
    return complete ? ExitOk : ExitFailed;
}

} // namespace kv::tools
