#pragma once

#include <kvcore/platform/export.h>

class InputStream;
class OutputStream;

namespace NewMemoryBlock
{

/// A handle on bytes that several handles may share. The first write through one of them separates it from the others.
///
/// Sizes are bytes; a size below 1 means an empty handle. Memory that runs out throws std::bad_alloc and leaves the
/// handle as it was.
///
/// Threads: the count of sharers is a plain integer, so all handles that share their bytes belong to one thread.
class KVCORE_API MemoryBlock
{
public:
    /// Empty.
    MemoryBlock();
    /// `size` bytes, not cleared.
    explicit MemoryBlock(int size);
    /// Shares the bytes of `other`.
    MemoryBlock(MemoryBlock const & other);
    /// Lets go of the old bytes and shares those of `other`.
    MemoryBlock & operator=(MemoryBlock const & other);
    ~MemoryBlock();

    /// The size in bytes, 0 for an empty handle.
    int size() const;

    /// The bytes for reading, null for an empty handle. Never separates.
    operator char const *() const;

    /// The bytes for writing, null for an empty handle. Bytes that are shared are copied first, and this handle takes
    /// the copy.
    operator char *();

    /// Changes the size and keeps the bytes up to the lesser of both sizes. Other handles keep theirs. The size that
    /// the handle has already changes nothing, and shared bytes then stay shared.
    void resize(int size);

private:
    struct Record;

    static Record * NewRecord(int size);
    void Release();

    Record * record;
};

/// There is no stored form for a handle. Without the deletion it would go out as the C string that its bytes are not.
OutputStream & operator<<(OutputStream &, MemoryBlock const &) = delete;
InputStream & operator>>(InputStream &, MemoryBlock &) = delete;

} // namespace NewMemoryBlock
