#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// One view at a time of an existing file in memory, at any byte.
///
/// Nothing throws. A file that cannot be opened, or that is empty, leaves an object of size 0, of which nothing can be
/// mapped. Nobody else may open the file meanwhile.
///
/// Threads: an object belongs to one thread; pageSize is for any.
class KVCORE_API MemoryMappedFileBase
{
public:
    MemoryMappedFileBase(MemoryMappedFileBase const &) = delete;
    MemoryMappedFileBase & operator=(MemoryMappedFileBase const &) = delete;

    /// Maps `size` bytes from `offset` on, or what there is of them; a negative `size` is all the rest. Gives the bytes
    /// mapped, 0 for a `size` of 0, and -1 on failure: an offset outside the file, or a view of nearly 2 GiB or more.
    /// The previous view goes in any case.
    int map(__int64 offset, int size);

    /// What a view must begin at a multiple of, in bytes: the system's granularity, not the page of its memory.
    static int pageSize();

    /// The file's size in bytes when it was opened.
    __int64 getFileSize() const
    {
        return fileSize;
    }
    /// The bytes that are mapped.
    int getMemSize() const
    {
        return memSize;
    }
    /// The first byte asked for; null if nothing is mapped. Valid until the next map, or the end of the object.
    char const * getMemAdr() const
    {
        return memAdr;
    }

protected:
    MemoryMappedFileBase(String const & path, bool writable);
    ~MemoryMappedFileBase();

    /// Drops the view, and with `closeFile` also the file.
    void unmap(bool closeFile);

    bool forWrite;
    HANDLE fileHandle;
    HANDLE mappingHandle;
    void * viewBase; // at a multiple of pageSize()
    char * memAdr;
    int memSize;
    __int64 fileSize;
};

/// For reading. A view reads what is in the file; writing to it is a hardware fault.
class KVCORE_API MemoryMappedFileForRead : public MemoryMappedFileBase
{
public:
    explicit MemoryMappedFileForRead(String const & path);
    ~MemoryMappedFileForRead();
};

/// For reading and writing in place. What is written to a view is in the file; the file does not grow.
class KVCORE_API MemoryMappedFileForWrite : public MemoryMappedFileBase
{
public:
    explicit MemoryMappedFileForWrite(String const & path);
    ~MemoryMappedFileForWrite();

    /// As the base's, for writing.
    char * getMemAdr() const
    {
        return memAdr;
    }
};
