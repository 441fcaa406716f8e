#pragma once

#include <string>

#include <kvcore/files/File.h>
#include <kvcore/frame/DateTime.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>
#include <kvcore/streams/LastWrite.h>
#include <kvcore/streams/Streams.h>

// How a file is opened. The values are the system's own and go to it unchanged, so any other value of the system is
// allowed too: `FileAccessMode(0x120089)`.

/// What a stream may do with its file.
enum FileAccessMode : DWORD
{
    FileAccess_None = 0,
    FileAccess_Write = 0x40000000,
    FileAccess_Read = 0x80000000,
    FileAccess_ReadWrite = 0xC0000000,
};

/// What others may do with the file meanwhile.
enum FileShareMode : DWORD
{
    FileShare_None = 0,
    FileShare_Read = 1,
    FileShare_Write = 2,
    FileShare_Delete = 4,
};

/// What happens if the file is there, or is not.
enum FileCreationMode : DWORD
{
    FileCreation_CreateNew = 1,        ///< must not be there
    FileCreation_CreateAlways = 2,     ///< emptied or made
    FileCreation_OpenExisting = 3,     ///< must be there
    FileCreation_OpenAlways = 4,       ///< opened or made
    FileCreation_TruncateExisting = 5, ///< must be there, emptied
};

/// Attributes of a new file, and flags for any.
enum FileAttributes : DWORD
{
    FileAttributes_None = 0,
    FileAttributes_ReadOnly = 0x1,
    FileAttributes_Hidden = 0x2,
    FileAttributes_Normal = 0x80,
    FileAttributes_DeleteOnClose = 0x4000000,
    FileAttributes_SequentialScan = 0x8000000,
    FileAttributes_RandomAccess = 0x10000000,
    FileAttributes_Overlapped = 0x40000000,
    FileAttributes_WriteThrough = 0x80000000,
};

/// Where a new position counts from.
enum FileSeekMode : DWORD
{
    FileSeek_Begin = 0,
    FileSeek_Current = 1,
    FileSeek_End = 2,
};

constexpr FileAccessMode operator|(FileAccessMode left, FileAccessMode right)
{
    return FileAccessMode(DWORD(left) | DWORD(right));
}
constexpr FileShareMode operator|(FileShareMode left, FileShareMode right)
{
    return FileShareMode(DWORD(left) | DWORD(right));
}
constexpr FileAttributes operator|(FileAttributes left, FileAttributes right)
{
    return FileAttributes(DWORD(left) | DWORD(right));
}

/// One open file: a thin wrapper of the system's handle, whose failures are exceptions.
///
/// A stream is closed or open, and may be opened again after Close. The path stays as last given. Only Open and Flush
/// look whether the stream is open; everything else leaves it to the system, whose failure on a closed handle (code 6)
/// it reports.
///
/// Kept: copies are memberwise. A copy shares the handle, nobody counts the owners, and each of them closes it: when
/// the first is destroyed or closed the others are left with the number of a handle that is closed, or that names
/// another file by then. Detach yourself from copies that you cannot avoid, and let one owner alone outlive them.
///
/// Threads: no locks; one thread at a time.
class KVCORE_API BasicFileStream : public File
{
public:
    /// What is thrown when the system refuses. `code` is 1, `text` the system's text for `error`.
    struct KVCORE_API Exception : StreamBase::Exception
    {
        explicit Exception(DWORD systemError);

        DWORD error; ///< the system's code
    };

    /// Closed, with an empty path.
    BasicFileStream();
    /// Opens the file as Open does.
    BasicFileStream(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes);
    BasicFileStream(BasicFileStream const & other);
    BasicFileStream & operator=(BasicFileStream const & other);
    /// Closes. The classes derived from this one may have something to write, and then throw what that throws.
    virtual ~BasicFileStream() noexcept(false);

    /// Opens a file and takes over its path, which stays even if the file cannot be opened. Throws code 170 if the
    /// stream is open already; the open file and its path then stay.
    virtual void Open(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes);
    /// Closes the file, if one is open. Never throws here, and whether the system was content is not looked at.
    virtual void Close();
    /// Moves the position and gives the new one, in bytes from the beginning. It may lie behind the end.
    virtual __int64 SetPosition(__int64 distance, FileSeekMode mode);
    /// Reads up to `count` bytes and gives how many there were: fewer are no failure, 0 is the end of the file. No
    /// bytes asked for is no call of the system.
    virtual DWORD Read(void * data, DWORD count);
    /// Writes bytes and gives how many were written. No bytes is no call of the system.
    virtual DWORD Write(void const * data, DWORD count);
    /// Returns when all that was written is on the disk. Throws code 6 if the stream is closed.
    virtual void Flush();

    bool IsOpen() const;

    /// Makes `data` what one virtual Read of `count` bytes gives, and returns its size. After a failure `data` has
    /// `count` bytes, of which nothing is known.
    DWORD Read(std::string & data, DWORD count);
    /// Makes `data` all that follows in the file, by virtual Reads of 1 MiB up to the first that gives less, and
    /// returns its size. After a failure `data` holds what came before.
    ///
    /// Kept: on a buffered stream, whose Read never gives less, this ends in "Unexpected end of file" always.
    unsigned __int64 Read(std::string & data);
    /// Writes the bytes of `data` by one virtual Write. Throws code 87 for 4 GiB and more.
    DWORD Write(std::string const & data);

    /// Bytes.
    __int64 GetSize() const;
    /// Bytes from the beginning, as the system has it.
    __int64 GetPosition() const;

    /// Lock and unlock a range of bytes against other handles of the file, also in other processes; not against other
    /// threads that use this stream. Without arguments: from 0 to the size at that time.
    void Lock(__int64 position, __int64 length);
    void Unlock(__int64 position, __int64 length);
    void Lock();
    void Unlock();

    /// The file's times; a null pointer skips one. On failure nothing is filled in.
    void GetTimes(DateTime * creation, DateTime * access, DateTime * write) const;
    /// A null pointer leaves a time alone.
    void SetTimes(DateTime const * creation, DateTime const * access, DateTime const * write);

protected:
    HANDLE GetHandle() const;
    /// Throws Exception with the calling thread's last error.
    [[noreturn]] void ThrowException() const;

private:
    __int64 _SetFilePointer(__int64 distance, DWORD mode) const;

    HANDLE handle;
};

/// A file stream with one buffer of 4,096 bytes. Larger transfers pass it by.
///
/// The buffer serves one direction: mixing reads and writes is not supported. SetPosition does not touch it: what was
/// buffered for writing is still to be written, and will land at the new position; what was buffered for reading is
/// handed out first. Close does not touch it either.
///
/// Kept: copies share the buffer as they share the handle, and each frees it. At most one of them may be destroyed.
class KVCORE_API BufferedFileStream : public BasicFileStream
{
public:
    BufferedFileStream(BufferedFileStream const & other);
    BufferedFileStream & operator=(BufferedFileStream const & other);
    /// Kept: drops what is buffered. FileOutputStream writes it.
    ~BufferedFileStream() noexcept(false) override;

    using BasicFileStream::Read;
    using BasicFileStream::Write;

    /// Delivers all `count` bytes and gives `count`, or throws code 5, "Unexpected end of file"; what there was is then
    /// in `data`.
    DWORD Read(void * data, DWORD count) override;
    /// Takes all bytes and gives `count`. A buffer that has just become full waits for the next byte or a Flush. A
    /// buffer that could not be written stays.
    DWORD Write(void const * data, DWORD count) override;
    /// Writes the buffer, and returns when it is on the disk.
    void Flush() override;

protected:
    BufferedFileStream(
        String const & newPath, FileAccessMode access, FileShareMode share, FileCreationMode creation,
        FileAttributes attributes);

private:
    DWORD ReadOn(char * data, DWORD count);
    DWORD WriteOn(char const * data, DWORD count);

    char * buffer;  // 4,096 bytes
    DWORD position; // of the next byte to hand out, or to fill
    DWORD limit;    // where the bytes for reading end
};

/// Writes a file, as the end of a chain of streams. Nobody else may open the file meanwhile.
class KVCORE_API FileOutputStream : public OutputStream, public BufferedFileStream
{
public:
    /// Makes the file or empties it; with `append` leaves what is in it, and goes on behind.
    FileOutputStream(String const & newPath, bool append);
    FileOutputStream(FileOutputStream const & other);
    FileOutputStream & operator=(FileOutputStream const & other);
    /// Flushes, to the disk. Throws what that throws, code 6 for a stream that was closed before, unless an exception
    /// is on its way already.
    ~FileOutputStream() noexcept(false) override;

    using BufferedFileStream::Write;
    /// As the buffered Write. A negative size writes nothing.
    void Write(char const * data, int size) override;

    /// The flush of the chain, whichever base it is called by: streams that write into this one come first, then
    /// FlushSelf.
    void Flush() override;

    /// Writes what is buffered, and returns when it is on the disk.
    void FlushSelf() override;

private:
    kv::detail::LastWrite lastWrite;
};

/// Reads a file, as the end of a chain of streams. Others may read it meanwhile.
class KVCORE_API FileInputStream : public InputStream, public BufferedFileStream
{
public:
    /// Opens an existing file for reading and for what `extra` adds.
    explicit FileInputStream(String const & newPath, FileAccessMode extra = FileAccess_None);
    FileInputStream(FileInputStream const & other);
    FileInputStream & operator=(FileInputStream const & other);
    ~FileInputStream() noexcept(false) override;

    using BufferedFileStream::Read;
    /// As the buffered Read: all bytes or an exception. A negative size reads nothing.
    void Read(char * data, int size) override;
};
