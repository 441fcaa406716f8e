#pragma once

#include <filesystem>
#include <memory>

#include <kvcore/tools/support/NewFile.h>
#include <kvcore/tools/support/StdioStreams.h>

namespace kv::tools
{

/// A file that comes to be whole or not at all.
///
/// The bytes go to a new file in the folder of the target (see NewFile). `Commit` brings them to the disk and only then
/// gives them the target's name, in one step of the file system. A crash, a full disk or any other failure before that
/// step leaves what stood under the name as it was. A target that is a symbolic link is followed, and the permissions
/// of one that exists survive. What a killed process left in the folder is removed.
///
/// A device, a pipe and an open file of this process ("/dev/stdout") cannot be replaced; they take the bytes as they
/// come.
///
/// Failures are IoException. One thread at a time.
class SafeFile
{
public:
    /// Makes the new file. `target` is a native path.
    explicit SafeFile(std::filesystem::path const & target);
    /// Without a Commit before it, removes the new file.
    ~SafeFile();
    SafeFile(SafeFile const &) = delete;
    SafeFile & operator=(SafeFile const &) = delete;

    /// Takes the bytes. Not to be used after Commit.
    OutputStream & Stream();

    /// Makes the target of what was written. Nothing happened to it if this throws. At most once.
    void Commit();

    /// Whether the bytes reach the target only with Commit.
    [[nodiscard]] bool Replaces() const
    {
        return file != nullptr;
    }

    /// The file that `path` leads to, by however many links, whether it exists or not.
    [[nodiscard]] static std::filesystem::path Followed(std::filesystem::path const & path);

    /// Whether a name, without a folder, is that of a file on its way to its final name: one of this class, or one of
    /// the platform's moves and replacements (".kv-", 16 hexadecimal digits, ".tmp"). Who walks a folder for files of
    /// its own kind passes over them.
    [[nodiscard]] static bool IsTemporaryName(std::filesystem::path const & name);

private:
    std::unique_ptr<NewFile> file; ///< null for what cannot be replaced
    std::unique_ptr<StdioOutputStream> stream;
};

} // namespace kv::tools
