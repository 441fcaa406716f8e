#include <kvcore/examples/storyboard/FolderWalk.h>

#include <algorithm>
#include <string_view>
#include <system_error>
#include <type_traits>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/RunLog.h>
#include <kvcore/files/File.h>
#include <kvcore/files/FileFinder.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/SafeFile.h>

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

[[maybe_unused]] void AppendUtf8(std::string & text, char32_t c)
{
    if (c < 0x80)
    {
        text += static_cast<char>(c);
        return;
    }
    int const following = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    char32_t const lead = following == 1 ? 0xC0 : following == 2 ? 0xE0 : 0xF0;
    text += static_cast<char>(lead | c >> 6 * following);
    for (int i = following - 1; i >= 0; --i)
    {
        text += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
    }
}

template <typename Unit>
std::string FromNative(std::basic_string<Unit> const & native)
{
    if constexpr (sizeof(Unit) == 1)
    {
        return native;
    }
    else
    {
        std::string text;
        for (std::size_t i = 0; i < native.size(); ++i)
        {
            char32_t c = static_cast<char16_t>(native[i]);
            char32_t const next = i + 1 < native.size() ? static_cast<char16_t>(native[i + 1]) : 0;
            if (c >= 0xD800 && c < 0xDC00 && next >= 0xDC00 && next < 0xE000)
            {
                c = 0x10000 + ((c - 0xD800) << 10) + (next - 0xDC00);
                ++i;
            }
            AppendUtf8(text, c);
        }
        return text;
    }
}

template <typename Unit>
std::basic_string<Unit> ToNative(std::string const & text)
{
    if constexpr (sizeof(Unit) == 1)
    {
        return text;
    }
    else
    {
        std::basic_string<Unit> native;
        for (std::size_t i = 0; i < text.size();)
        {
            unsigned char const lead = static_cast<unsigned char>(text[i++]);
            int following = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
            char32_t c = following == 0 ? lead : lead & 0x3F >> following;
            for (; following > 0 && i < text.size() && (text[i] & 0xC0) == 0x80; --following)
            {
                c = c << 6 | (static_cast<unsigned char>(text[i++]) & 0x3F);
            }
            if (c >= 0x10000)
            {
                native += static_cast<Unit>(0xD800 + ((c - 0x10000) >> 10 & 0x3FF));
                c = 0xDC00 + (c & 0x3FF);
            }
            native += static_cast<Unit>(c);
        }
        return native;
    }
}

} // namespace

std::string StoredName(fs::path const & name)
{
    return FromNative(name.native());
}

fs::path NativePath(std::string const & stored)
{
    return ToNative<fs::path::value_type>(stored);
}

namespace
{

/// A folder that cannot be listed, in the system's words.
struct Unlisted
{
    std::string reason;
};

/// One walk: the folders that are still to be visited, and what was found so far.
class Walk
{
public:
    Walk(fs::path const & folder, std::vector<fs::path> const & except)
        : root(fs::canonical(folder)), exceptions(except)
    {
    }

    FolderContent Run()
    {
        // The root's failure is the caller's; below, a folder that cannot be read is one thing less in the project.
        std::vector<Entry> pending = List({}, root);
        std::reverse(pending.begin(), pending.end());
        while (!pending.empty())
        {
            Entry const entry = pending.back();
            pending.pop_back();
            std::vector<Entry> const below = Visit(entry);
            pending.insert(pending.end(), below.rbegin(), below.rend());
        }
        return std::move(content);
    }

private:
    using Why = LeftOut::Why;

    struct Entry
    {
        std::string path;
        fs::path native;
        bool folder;
        std::int64_t size;
        DateTime modified;
    };

    /// The entries of a folder, its files before its folders, so that a folder's files stand together.
    static std::vector<Entry> List(std::string const & path, fs::path const & folder)
    {
        std::vector<Entry> entries;
        FileFinder finder;
        bool more = finder.Start(File::MakePath(kv::tools::LibraryPath(folder), TEXT("*")), false);
        for (; more; more = finder.Next())
        {
            fs::path const native = kv::tools::NativePath(finder.GetFilePath());
            std::string const name = StoredName(native.filename());
            entries.push_back(
                {path.empty() ? name : path + '/' + name, native, finder.IsDirectory() && !finder.IsLink(),
                 finder.GetFileSize(), finder.GetLastWriteTime()});
        }
        // The root of a drive has not even dots.
        if (DWORD const error = GetLastError(); error != ERROR_NO_MORE_FILES && error != ERROR_FILE_NOT_FOUND)
        {
            throw Unlisted{String::FromError(static_cast<LONG>(error)).Utf8()};
        }
        std::sort(
            entries.begin(), entries.end(),
            [](Entry const & a, Entry const & b) { return a.folder != b.folder ? b.folder : a.path < b.path; });
        return entries;
    }

    void LeaveOut(Entry const & entry, LeftOut::Why why, std::string reason)
    {
        content.leftOut.push_back({entry.path, why, std::move(reason)});
    }

    /// Takes a file, or returns what stands in a folder.
    std::vector<Entry> Visit(Entry const & entry)
    {
        try
        {
            if (entry.folder)
            {
                return List(entry.path, entry.native);
            }
            Take(entry);
        }
        catch (Unlisted const & failure)
        {
            LeaveOut(entry, Why::Unreadable, failure.reason);
        }
        catch (fs::filesystem_error const & failure)
        {
            LeaveOut(entry, Why::Unreadable, failure.code().message());
        }
        return {};
    }

    void Take(Entry const & entry)
    {
        FoundFile file{entry.path, entry.native, entry.size, entry.modified};
        fs::file_status status = fs::symlink_status(entry.native);
        if (fs::is_symlink(status))
        {
            status = fs::status(entry.native);
            if (!fs::exists(status))
            {
                return LeaveOut(entry, Why::NoTarget, Text(TEXT_LINK_TO_NOTHING));
            }
            if (fs::is_directory(status))
            {
                return LeaveOut(entry, Why::NoSource, Text(TEXT_LINK_TO_FOLDER));
            }
            if (!LeadsInside(entry.native))
            {
                return LeaveOut(entry, Why::NoSource, Text(TEXT_LINK_OUT));
            }
            TakeTarget(file);
        }
        if (!fs::is_regular_file(status))
        {
            return LeaveOut(entry, Why::NoSource, Text(TEXT_NO_FILE));
        }
        if (kv::tools::SafeFile::IsTemporaryName(entry.native.filename()))
        {
            return LeaveOut(entry, Why::NoSource, Text(TEXT_UNFINISHED));
        }
        if (IsException(entry.native))
        {
            return LeaveOut(entry, Why::NoSource, Text(TEXT_ITSELF));
        }
        content.files.push_back(std::move(file));
    }

    /// What a walk tells of a link is the link's own.
    static void TakeTarget(FoundFile & file)
    {
        String const target = kv::tools::LibraryPath(file.native);
        FILETIME modified = {};
        File::GetLastWriteTime(target, modified);
        file.modified = modified;
        file.size = File::GetFileSize(target);
    }

    bool LeadsInside(fs::path const & link) const
    {
        fs::path const target = fs::canonical(link);
        return std::mismatch(root.begin(), root.end(), target.begin(), target.end()).first == root.end();
    }

    bool IsException(fs::path const & file) const
    {
        return std::any_of(
            exceptions.begin(), exceptions.end(),
            [&](fs::path const & exception)
            {
                std::error_code error;
                return fs::equivalent(file, exception, error);
            });
    }

    fs::path const root;
    std::vector<fs::path> const & exceptions;
    FolderContent content;
};

} // namespace

FolderContent WalkFolder(fs::path const & folder, std::vector<fs::path> const & except)
{
    try
    {
        FolderContent content = Walk(folder, except).Run();
        Log(LogStep,
            "Found " + std::to_string(content.files.size()) + " files in " + Printable(StoredName(folder)) + ", and " +
                std::to_string(content.leftOut.size()) + " entries that are left out");
        return content;
    }
    catch (Unlisted const & failure)
    {
        throw SystemFailure(TEXT_CANNOT_READ_FOLDER, folder, failure.reason);
    }
    catch (fs::filesystem_error const & failure)
    {
        throw SystemFailure(TEXT_CANNOT_READ_FOLDER, folder, failure.code().message());
    }
}

} // namespace Storyboard
