#pragma once

#include <kvcore/core/String.h>
#include <kvcore/frame/DateTime.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>
#include <kvcore/streams/Streams.h>

/// One entry of a directory, as the system reports it: the system's record of 592 bytes and nothing else.
///
/// The record may come from a stream, so names that lack their NUL end with their room. Threads: a plain value.
class KVCORE_API FileData : private WIN32_FIND_DATAW
{
public:
    /// All zero.
    FileData();
    FileData(FileData const &) = default;
    FileData & operator=(FileData const &) = default;
    /// All zero again.
    void Clear();

    String GetFileName() const;
    /// The 8.3 name, if the name itself is none; empty otherwise.
    String GetShortFileName() const;
    /// The name from its last '.' on, with the dot; empty if it has none.
    String GetFileExtension() const;
    /// Bytes.
    __int64 GetFileSize() const;
    DateTime GetCreationTime() const;
    DateTime GetLastAccessTime() const;
    DateTime GetLastWriteTime() const;

    /// @name Attributes
    /// @{
    bool IsDirectory() const;
    bool IsReadOnly() const;
    bool IsHidden() const;
    bool IsSystem() const;
    bool IsArchived() const;
    bool IsCompressed() const;
    /// A name that stands for something elsewhere: a symbolic link or a junction. Who walks a tree and must not leave
    /// it does not walk these.
    bool IsLink() const;
    /// The directory itself, ".", or the one above it, "..".
    bool IsDots() const;
    /// @}

    /// Equal attributes, names (whatever the case of A to Z), sizes, and times of creation and last write as
    /// IsEqualFileTime compares them. Kept: the time of the last access is not compared.
    bool operator==(FileData const & other) const;
    bool operator!=(FileData const & other) const;

    /// True if the times are identical, or one hour apart to within a millisecond, which is what a change to summer
    /// time does to the times of some file systems.
    ///
    /// Kept: only the low 32 bits of the distance are looked at, so distances that differ by a multiple of 2^32 ticks
    /// from an hour pass, too; and times that are a tick apart are different.
    static bool IsEqualFileTime(DateTime const & left, DateTime const & right);

protected:
    /// For who calls the system.
    operator WIN32_FIND_DATAW *();
};

static_assert(sizeof(FileData) == 592, "stored in streams as it lies in memory");

/// The record's 592 bytes as they lie in memory, without a length.
KVCORE_API OutputStream & operator<<(OutputStream & stream, FileData const & data);
/// Kept: takes a constant record, and reads into it all the same.
KVCORE_API InputStream & operator>>(InputStream & stream, FileData const & data);
