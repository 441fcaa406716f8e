// The path rules beside std::filesystem::path, the look-up of names, and walking a large folder.

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

namespace fs = std::filesystem;
using bench::ScratchFolder;

/// The same paths in both worlds: a root, some folders, a name with an extension. The peer's as texts, which a rule on
/// texts starts from, and as what it makes of them beforehand.
struct Paths
{
    std::vector<String> ours;
    std::vector<std::string> texts;
    std::vector<fs::path> parsed;
    std::size_t bytes = 0;
};

Paths MakePaths()
{
    auto random = bench::Random();
    Paths paths;
    for (int i = 0; i < 1000; ++i)
    {
        std::string text;
        for (std::size_t parts = 2 + random() % 6; parts != 0; --parts)
        {
            text += '/';
            for (std::size_t length = 3 + random() % 14; length != 0; --length)
            {
                text += static_cast<char>('a' + random() % 26);
            }
        }
        text += ".mpg";
        std::string own = "C:" + text;
        std::replace(own.begin(), own.end(), '/', '\\');
        paths.ours.push_back(String::FromLatin1(own));
        paths.texts.push_back(text);
        paths.parsed.push_back(text);
        paths.bytes += text.size();
    }
    return paths;
}

/// Adds the contestants of one job: an operation over all elements of two lists.
template <class Ours, class Peer, class PeerPath>
void AddRule(
    std::string const & name, std::vector<String> const & paths, std::vector<PeerPath> const & peerPaths,
    std::size_t bytes, Ours ours, Peer peer)
{
    bench::Add(
        name + "/ours", bytes,
        [=]
        {
            for (String const & path : paths)
            {
                benchmark::DoNotOptimize(ours(path));
            }
        });
    bench::Add(
        name + "/filesystem", bytes,
        [=]
        {
            for (PeerPath const & path : peerPaths)
            {
                benchmark::DoNotOptimize(peer(path));
            }
        });
}

/// An operation from text to text; and one on paths that the peer has taken apart beforehand, to a path.
template <class Ours, class Peer>
void AddRules(Paths const & paths, std::string const & name, Ours ours, Peer peer)
{
    for (std::size_t i = 0; i < paths.ours.size(); ++i)
    {
        std::string text = String(ours(paths.ours[i])).Utf8();
        std::replace(text.begin(), text.end(), '\\', '/');
        std::string const expected = peer(paths.parsed[i]).string();
        bench::Require(text == expected || text == "C:" + expected, name);
    }
    AddRule(
        "PathRule/" + name, paths.ours, paths.texts, paths.bytes, ours,
        [peer](std::string const & text) { return peer(fs::path(text)).string(); });
    AddRule("PathRule/" + name + "-parsed", paths.ours, paths.parsed, paths.bytes, ours, peer);
}

void AddRules()
{
    Paths const paths = MakePaths();
    AddRules(
        paths, "GetBasename", [](String const & path) { return File::GetBasename(path, String()); },
        [](fs::path const & path) { return path.filename(); });
    AddRules(
        paths, "GetFileExtension", [](String const & path) { return File::GetFileExtension(path); },
        [](fs::path const & path) { return path.extension(); });
    String const name = TEXT("chapter.xml");
    fs::path const peerName = "chapter.xml";
    AddRules(
        paths, "MakePath", [=](String const & path) { return File::MakePath(path, name); },
        [=](fs::path const & path) { return path / peerName; });
}

void AddLookUp()
{
    fs::path const relative = "One/Two/Three/Four/Five/Six/Seven/Eight.txt";
    fs::create_directories((ScratchFolder::Path() / relative).parent_path());
    std::ofstream(ScratchFolder::Path() / relative) << "here";
    String const exact = ScratchFolder::Name(relative);
    String const wrong = ScratchFolder::Name("oNE/tWO/tHREE/fOUR/fIVE/sIX/sEVEN/eIGHT.TXT");
    std::string const native = (ScratchFolder::Path() / relative).string();
    bench::Require(File::FileExists(exact) && File::FileExists(wrong), "PathLookUp");

    auto const peer = [=]
    {
        struct stat found;
        benchmark::DoNotOptimize(stat(native.c_str(), &found));
    };
    bench::Add("PathLookUp/exact-case/ours", 1, [=] { benchmark::DoNotOptimize(File::FileExists(exact)); });
    bench::Add("PathLookUp/exact-case/stat", 1, peer);
    bench::Add("PathLookUp/wrong-case/ours", 1, [=] { benchmark::DoNotOptimize(File::FileExists(wrong)); });
    bench::Add("PathLookUp/wrong-case/stat", 1, peer);
}

/// What a walk finds, so that the walks can be compared.
struct Found
{
    std::size_t files = 0;
    std::int64_t bytes = 0;
    unsigned long long times = 0;

    bool operator==(Found const &) const = default;
};

void WalkOurs(String const & folder, Found & found)
{
    FileFinder finder(File::MakePath(folder, TEXT("*")), false);
    for (bool more = finder.IsValid(); more; more = finder.Next())
    {
        if (finder.IsDirectory())
        {
            WalkOurs(finder.GetFilePath(), found);
            continue;
        }
        ++found.files;
        found.bytes += finder.GetFileSize();
        FILETIME time;
        finder.GetLastWriteTime().GetAsFileTime(time);
        found.times += time.dwLowDateTime;
    }
}

void WalkPeer(fs::path const & folder, Found & found)
{
    for (fs::directory_entry const & entry : fs::recursive_directory_iterator(folder))
    {
        if (!entry.is_directory())
        {
            ++found.files;
            found.bytes += static_cast<std::int64_t>(entry.file_size());
            benchmark::DoNotOptimize(entry.last_write_time());
        }
    }
}

void MakeFolders(std::size_t folders)
{
    fs::path const root = ScratchFolder::Path() / "many";
    for (std::size_t i = 0; i < folders; ++i)
    {
        fs::path const folder = root / ("folder" + std::to_string(i));
        fs::create_directories(folder);
        for (int k = 0; k < 100; ++k)
        {
            std::ofstream(folder / ("take" + std::to_string(k) + ".mpg")) << k;
        }
    }
}

void PrepareFind()
{
    if (!fs::exists(ScratchFolder::Path() / "many"))
    {
        MakeFolders(bench::Scaled(1000, 50));
    }
    Found ours;
    WalkOurs(ScratchFolder::Name("many"), ours);
    Found peers;
    WalkPeer(ScratchFolder::Path() / "many", peers);
    bench::Require(ours.files == peers.files && ours.bytes == peers.bytes, "FileFinder");
}

void AddFind()
{
    bench::AddLong(
        "FileFinder/100-files-a-folder/ours", 0, PrepareFind,
        []
        {
            Found found;
            WalkOurs(ScratchFolder::Name("many"), found);
            benchmark::DoNotOptimize(found);
        });
    bench::AddLong(
        "FileFinder/100-files-a-folder/filesystem", 0, PrepareFind,
        []
        {
            Found found;
            WalkPeer(ScratchFolder::Path() / "many", found);
            benchmark::DoNotOptimize(found);
        });
}

void AddJobs()
{
    AddRules();
    AddLookUp();
    AddFind();
}

bench::Source const source(AddJobs);

} // namespace
