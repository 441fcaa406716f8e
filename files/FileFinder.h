#pragma once

#include <kvcore/core/String.h>
#include <kvcore/files/FileData.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Walks the entries of a directory that match a pattern, and is itself the entry that it stands at.
///
///     FileFinder finder(TEXT("c:\\clips\\*.avi"), false);
///     for (bool found = finder.IsValid(); found; found = finder.Next()) ...
///
/// The order is the system's, and so is what `*` and `?` match. Nothing throws; a directory that cannot be read has no
/// entries. Threads: a finder belongs to one thread.
class KVCORE_API FileFinder : public FileData
{
public:
    /// Is told what FindFilesRecursive finds.
    struct KVCORE_API IFindCallback
    {
        virtual ~IFindCallback();
        /// An entry `name` of the directory `directory`. False ends the walk of that directory.
        virtual bool OnFile(String const & directory, String const & name) = 0;
    };

    /// Stands nowhere.
    FileFinder();
    /// Starts at once; IsValid tells whether there is an entry.
    FileFinder(String const & pattern, bool includeDots);
    /// Kept: copies share the search, and each of them ends it. Only one copy may be moved on or destroyed while the
    /// search is under way.
    FileFinder(FileFinder const & other);
    FileFinder & operator=(FileFinder const & other);
    ~FileFinder();

    /// Looks for the first entry that matches the last component of `pattern`. With `includeDots` false, "." and ".."
    /// are passed over. True if there is one; else the finder is not valid and all zero.
    bool Start(String const & pattern, bool includeDots);
    /// Goes on to the next entry. False behind the last one: the finder is then not valid and all zero.
    bool Next();
    /// Whether the finder stands at an entry.
    bool IsValid() const;

    /// The entry's path, in the directory as the pattern had it (in "." if it had none); empty if there is no entry.
    String GetFilePath() const;
    /// The entry's name up to its last '.'; empty if there is no entry.
    String GetFileTitleW() const;
    /// The directory of the pattern.
    String GetSearchPath() const;

    /// Tells `callback` of all that matches `mask` in `dir` and in the directories below it, which come first, so that
    /// a directory is empty when its turn comes if the callback removes what it is told of. Links to directories are
    /// told of and not walked: what they lead to lies elsewhere, or above. True at the end; false if the callback
    /// returned false for an entry of `dir` itself.
    ///
    /// Kept: what happens in directories below changes nothing in the result, and does not end the walk. With
    /// `includeDirectories` false, the first directory of `dir` that matches `mask` ends the walk of `dir` with false,
    /// and the files behind it are not told of: use a mask that only files match.
    static bool
    FindFilesRecursive(String const & dir, String const & mask, IFindCallback & callback, bool includeDirectories);

private:
    void Close();

    bool valid;
    bool includesDots;
    String searchPath;
    HANDLE handle;
};
