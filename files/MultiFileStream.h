#pragma once

#include <memory>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/core/WinStringArray.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>
#include <kvcore/streams/LastWrite.h>

/// A list of files as one range of bytes, with one position across them. Only the last file can grow.
///
/// Failures are those of the files' streams. What was read or written before one stays counted in the position.
/// Without any file, reading, writing and setting the position throw BasicFileStream::Exception with code 6.
///
/// Threads: an object belongs to one. With `async`, memory that is written must stay alive and unchanged until Close,
/// Reset or the end of the object, and failures of writes are not told, as of BasicAsyncFileStream::WriteAsync.
class KVCORE_API BasicMultiFileStream
{
public:
    /// How all files will be opened. With `async` they are BasicAsyncFileStream, and writes return before their end.
    BasicMultiFileStream(
        FileAccessMode accessMode, FileShareMode shareMode, FileCreationMode creationMode,
        FileAttributes fileAttributes, bool asynchronous);
    BasicMultiFileStream(BasicMultiFileStream const &) = delete;
    BasicMultiFileStream & operator=(BasicMultiFileStream const &) = delete;
    /// Resets. Throws what that throws, unless an exception is on its way already.
    virtual ~BasicMultiFileStream() noexcept(false);

    /// Opens a file and appends it to the range. Its size is taken now; what grows or shrinks by other means later is
    /// not noticed.
    void AddFile(String const & path);
    /// Closes all files. They stay in the list, so the range keeps its size, but nothing can be read or written.
    void Close();
    /// Closes and forgets all files. Kept: the position stays. If an asynchronous file's last flush fails, the others
    /// are closed and forgotten all the same, and the first failure is thrown.
    void Reset();

    /// The bytes of all files.
    __int64 GetSize() const;
    /// From the beginning of the range. A position behind its end is one behind the end of the last file.
    void SetPosition(__int64 newPosition);
    /// Reads up to `count` bytes, over as many files as it takes, and gives how many there were; 0 at the end.
    DWORD Read(void * data, DWORD count);
    /// Writes `count` bytes over what is there, and behind it at the end of the last file; gives how many were written.
    DWORD Write(void const * data, DWORD count);

    /// Appends the paths in the order of the list.
    void GetFiles(WinStringArray<String> & paths) const;

protected:
    /// The bytes at which the last file is full and a further one begins, with a temporary name in the last file's
    /// directory. As good as without limit; a derived class sets a lower one before the first Write. A position that
    /// lies behind the end by the limit or more has room in no further file, and nothing is written there.
    __int64 maxFileSize;

private:
    struct Entry
    {
        std::unique_ptr<BasicFileStream> stream;
        __int64 size;
        __int64 start; // of its first byte in the range

        __int64 End() const
        {
            return start + size;
        }
    };

    Entry & Locate(__int64 target);
    __int64 Room(Entry const & entry) const;
    bool AddFurtherFile();

    std::vector<Entry> files;
    __int64 position;
    FileAccessMode access;
    FileShareMode share;
    FileCreationMode creation;
    FileAttributes attributes;
    bool async;
    kv::detail::LastWrite lastWrite;
};
