#pragma once

#include <filesystem>
#include <string_view>

namespace kv::tools
{

/// A file while it is written, beside the one whose place it takes once it is complete. One source of this class stands
/// in posix/ and one in windows/.
///
/// Where the system knows files without a name, it has none before Publish, so nothing of it outlives the process.
/// Elsewhere it is ".kvsave-0123456789abcdef.tmp" in the target's folder, and stays behind if the process is killed:
/// RemoveLeftovers knows it by its name and by nobody having it open.
///
/// Failures are IoException. One thread at a time.
class NewFile
{
public:
    /// For a target that is a regular file or does not exist. Until Publish, nobody but the owner can read the file.
    explicit NewFile(std::filesystem::path const & target);
    /// Removes the file unless it was published.
    ~NewFile();
    NewFile(NewFile const &) = delete;
    NewFile & operator=(NewFile const &) = delete;

    /// For host::Write; stays open until the end.
    [[nodiscard]] int Descriptor() const
    {
        return descriptor;
    }

    /// Brings the bytes to the disk, gives the file the permissions of the target, and puts it in the target's place in
    /// one step of the file system. If this throws, the target is as it was. At most once.
    void Publish();

    /// Whether a file of this name is one of this class that is not published.
    [[nodiscard]] static bool IsOwnName(std::string_view name);
    /// The same of the platform's moves and replacements, which look after their files themselves.
    [[nodiscard]] static bool IsPlatformName(std::string_view name);
    /// Removes what killed processes left in a folder. What is still written stays. Never fails.
    static void RemoveLeftovers(std::filesystem::path const & folder) noexcept;

private:
    [[nodiscard]] static std::filesystem::path NewName();

    std::filesystem::path const target;
    std::filesystem::path const folder;
    std::filesystem::path temporary; ///< empty while the file has no name
    int descriptor;
};

/// How a file that somebody names is written.
struct OutputTarget
{
    std::filesystem::path path; ///< of the file itself: links are followed
    int descriptor; ///< open for writing if `path` is a device, a pipe or an open file of this process; else -1
};
/// Looks at what a path leads to. Throws IoException for a folder, links in a circle, and a file
/// that may not be written.
[[nodiscard]] OutputTarget OpenTarget(std::filesystem::path const & path);

} // namespace kv::tools
