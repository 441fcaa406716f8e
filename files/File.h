#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Path arithmetic and one-call questions to the file system; and the small base of the file streams, which remembers
/// the path of what is open.
///
/// Paths are Win32 paths. Only the backslash separates here: a forward slash is an ordinary character in every path
/// rule, whatever the system's own calls make of it. Positions count 16-bit elements. A text with a NUL inside is taken
/// as it stands by the path rules, and up to the NUL by the system's calls.
///
/// Nothing throws but GetBasename with a suffix that is too long. Failures are false, 0 or an empty string, as stated;
/// the system's reason is then in GetLastError().
///
/// Threads: everything static works on its arguments alone, with one exception, GetRandomFilePath. One object belongs
/// to one thread at a time.
class KVCORE_API File
{
public:
    /// What GetDriveInfo tells of a drive.
    struct DriveInfo
    {
        String root;                         ///< the drive's root, such as "c:\"
        DWORD sectorsPerCluster;             ///< a cluster is the unit in which space is given out
        DWORD bytesPerSector;                ///< bytes
        DWORD freeClusters;                  ///< clusters for this user
        DWORD totalClusters;                 ///< clusters in all
        unsigned __int64 freeBytesAvailable; ///< bytes for this user
        unsigned __int64 totalBytes;         ///< bytes in all
        unsigned __int64 totalFreeBytes;     ///< bytes, for whomever
    };

    /// @name The path of an object
    /// Copies and assignments are about the path alone: nothing is opened, closed or shared by them. The forms without
    /// arguments apply the rules below to it.
    /// @{
    File(File const & other);
    File & operator=(File const & other);
    ~File();

    String GetFilePath() const;
    String GetBasename() const;
    String GetDirname() const;
    String GetFileExtension() const;
    String GetFileTitleW() const;
    String GetFilePathWithoutExtension() const;
    String GetShortPath() const;
    /// @}

    /// @name Kinds of paths
    /// The text alone decides.
    /// @{

    /// A letter, ':' and '\', and then the end or a NUL. "c:" is no root.
    static bool IsDriveRoot(String const & path);
    /// A letter, ':' and '\', or two backslashes, at the beginning. "\a" and "c:a" are relative to something.
    static bool IsPathAbsolute(String const & path);
    /// @}

    /// @name Questions about a path
    /// @{

    /// Whether something of this name is there, a directory too.
    static bool FileExists(String const & path);
    static bool IsDirectory(String const & path);
    /// Bytes; 0 for a directory, and on failure.
    static __int64 GetFileSize(String const & path);
    /// False, with `time` untouched, on failure and for a directory.
    static bool GetLastWriteTime(String const & path, FILETIME & time);
    /// @}

    /// @name Files and directories
    /// True if the system did it.
    /// @{
    static bool CopyFileW(String const & from, String const & to, bool failIfExists);
    /// True for a directory that exists already. The directory above must exist; see CreatePath.
    static bool CreateDirectoryW(String const & path);
    static bool DeleteFileW(String const & path);
    /// Of an empty directory.
    static bool RemoveDirectoryW(String const & path);
    /// @}

    /// @name Drives
    /// @{

    /// The system's type number (2 removable, 3 fixed, 4 remote, ...) of the drive of `path`; of the current drive if
    /// the path names none.
    static unsigned int GetDriveTypeW(String const & path);
    /// Whether the volume calls itself exactly "NTFS". What it is asked about is the path up to its first backslash, so
    /// only paths that begin with a drive ask a sensible question.
    static bool IsNTFSPath(String const & path);
    /// Fills all of `info` with what is known of the drive of a path that exists, and with 0 otherwise. True if
    /// everything is known; the root may be there even if it is not.
    static bool GetDriveInfo(String const & path, DriveInfo & info);
    /// @}

    /// @name Parts of a path
    /// The text alone decides.
    /// @{

    /// What stands before the last backslash; a root for a file in it. "." if there is no backslash.
    ///
    /// Kept: only that one cut is made. `a\` gives `a`, `\a` gives an empty string, `\\server\share` gives `\\server`,
    /// and `c:a` gives `.`.
    static String GetDirname(String const & path);

    /// What follows the last backslash, or the drive in "c:a". A root gives one backslash.
    ///
    /// Kept: a `suffix` is not looked for. Its length is cut off, whether the name ends in it or not; a name equal to
    /// the suffix stays whole. A suffix longer than the name ends in std::length_error, "string too long".
    static String GetBasename(String const & path, String const & suffix);

    /// The name from its last '.' on, with the dot; empty if it has none.
    static String GetFileExtension(String const & path);
    /// The name up to its last '.'.
    static String GetFileTitleW(String const & path);
    /// Kept: cuts at the last '.' of the whole path, which may stand in a directory's name: "c:\a.b\c" gives "c:\a".
    /// CutExtension looks where the dot stands.
    static String GetFilePathWithoutExtension(String const & path);
    /// The path without its extension: its last '.' and what follows, or, for an `extension` that is not empty, the
    /// last place where that stands and what follows. Kept: that place need not be the end. The path stays whole if a
    /// backslash follows.
    static String CutExtension(String const & path, String const & extension);
    /// The path with the extension replaced. `newExtension` brings its own dot. An empty path stays empty.
    static String SwitchExtension(String const & path, String const & newExtension);
    /// @}

    /// @name Whole paths
    /// @{

    /// Joins with exactly one backslash between. One of them empty gives the other as it stands. A name that begins
    /// with one backslash belongs to the directory's drive: "c:\a" and "\b" give "c:\b". Kept: a name that begins with
    /// two backslashes, or with a drive, is joined like any other.
    static String MakePath(String const & dir, String const & name);

    /// The absolute path, seen from the current directory, without doubled backslashes and without one at its end,
    /// unless it is a root. It need not exist. Empty on failure.
    static String GetFullPath(String const & path);
    /// The path with the system's short (8.3) names. Empty if it does not exist.
    static String GetShortPath(String const & path);
    /// The one spelling that all paths of a file on its drive have in common, for comparing. Empty if the path does not
    /// exist. Kept: letters A to Z are made small before names are looked up, so where two names differ in case alone,
    /// the lower-case one is taken for both.
    static String GetCanonicalPath(String const & path);
    /// The path shortened to at most `maxChars` elements by dots, for showing. Empty on failure.
    static String CompactPath(String const & path, unsigned int maxChars);
    /// @}

    /// @name Places
    /// @{

    /// Makes a directory and those above it that are missing. True if it is there in the end. On failure the
    /// directories made so far stay.
    static bool CreatePath(String const & path);
    /// The directory for temporary files, without a backslash at its end. Empty on failure.
    static String GetTempDirectory();
    /// The user's directory for the data of applications. Empty on failure.
    static String GetApplicationDataDirectory();
    /// Kept: the same directory, whatever `folder` is asked for; callers count on where their data lies. `create` makes
    /// it if it is missing; `owner` is the window for what the system may have to ask.
    static String GetSpecialFolderPath(int folder, bool create, HWND owner);
    /// Creates an empty file with a name of its own in `dir`, or in the directory for temporary files if that is empty.
    /// Empty on failure.
    static String GetTempFilePath(String const & dir);
    /// @}

    /// @name URLs
    /// @{

    /// The "file:" URL of a path. Characters above 0x7F stand in it as they are, escapes below that as escapes. Empty
    /// on failure.
    static String PathToURL(String const & path);
    /// The path of a "file:" URL, with or without the "file:". Empty on failure.
    static String URLToPath(String const & url);
    /// @}

    /// @name Names for new files
    /// The names are free at the moment of the test; nothing is created. Who creates the file must be ready to find it
    /// taken.
    /// @{

    /// Makes a path's name one that its directory can hold; the system says which characters go and what takes their
    /// place. Kept: `replacement` is used for one thing only, as the whole new path of a name that is too long. A path
    /// without a directory, or in ".", is a name from end to end.
    static void CleanFilename(String & path, WCHAR replacement);

    /// The path of the first free file in `dir` that is called `name.number`, and `extension` behind it. The extension
    /// brings its own dot. Counting starts at 1, or at the number that a name of digits alone, or of digits behind a
    /// dot, ends in; such a number is replaced, and other digits at the end stay part of the name. `counter`, if not
    /// null, says where to start instead (0 is a start too), and receives the number after the one that was used.
    /// `format` is a printf form for one number; null is "%04d". Empty, with the counter untouched, if `dir` does not
    /// exist or cannot be asked. There is no limit on the number of tries.
    static String GetNextFilePath(
        String const & dir, String const & name, String const & extension, unsigned int * counter,
        WCHAR const * format);
    /// The same with a random number of at least ten places in place of the digits that `name` ends in. Threads: seeds
    /// and reads the C run-time library's shared generator.
    static String GetRandomFilePath(String const & dir, String const & name, String const & extension);
    /// @}

    /// @name Directory trees
    /// Links to directories are entries like any other and are not walked: nothing outside the tree is counted or
    /// removed.
    /// @{

    /// Removes the files below `dir` that match `mask`, and with `includeDirectories` the directories, too, as far as
    /// they are empty by then; and `dir` itself if `removeRoot`. The first one that cannot be removed ends the work on
    /// its directory, and with false if that is `dir`. Kept: without `includeDirectories` a directory that matches ends
    /// it, too; see FileFinder::FindFilesRecursive. A folder that is replaced by a link meanwhile is not gone through.
    static bool DeleteFilesRecursive(String const & dir, String const & mask, bool includeDirectories, bool removeRoot);
    /// The bytes of a file, or of all files below a directory. -1 for an empty path, 0 for one that does not exist.
    /// Directories that cannot be read add nothing.
    static __int64 GetSizeRecursive(String const & path);
    /// @}

protected:
    /// Without a path.
    File();

    /// Adds the sizes of all files below the directory `dir` to `size`.
    static void GetDirSize(String const & dir, __int64 & size);

    String path;
};
