#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/streams/LastWrite.h>
#include <kvcore/streams/Streams.h>

/// Cuts a byte stream into checksummed blocks, so that a reader finds damage at the next block's end.
///
/// A stream is any number of blocks, with no header and no end mark. A block is its length (32 bits, 1 to 4,088), the
/// payload, and the CRC-32 of the payload (32 bits, as zlib's crc32(0, payload, length) gives it); all little-endian.
/// A full block takes 4,096 bytes.
///
/// Length, payload and checksum are three writes downstream. After a failure of one of them, the next call that passes
/// bytes on (a write, a flush, the destructor) goes on with the write that failed: no part is left out, and none that
/// succeeded is repeated.
class KVCORE_API CRCOutputStream : public OutputStream
{
public:
    /// Chains onto `target`, which must outlive this stream.
    explicit CRCOutputStream(OutputStream & target);
    CRCOutputStream(CRCOutputStream const &) = delete;
    CRCOutputStream & operator=(CRCOutputStream const &) = delete;
    /// Writes the last block, if there are bytes for one. Throws what that write throws, unless an exception is on its
    /// way already.
    ~CRCOutputStream() noexcept(false) override;

    /// Collects bytes and writes a block whenever 4,088 are there. After a failure, bytes up to the end of that block
    /// count as taken.
    void Write(char const * data, int size) override;

protected:
    /// Closes the block under way, however short; no bytes, no block.
    void FlushSelf() override;

private:
    static constexpr int blockSize = 4088;

    enum class Stage
    {
        Length,
        Payload,
        Checksum
    };

    void WriteBlock();

    char block[blockSize];
    int fill;
    Stage stage; // the next of the three writes
    kv::detail::LastWrite lastWrite;
};

/// Reads what CRCOutputStream wrote. A block is checked before any of its bytes reach the caller.
///
/// A length outside 1 to 4,088 throws code 4, "Illegal CRC block size". A wrong checksum throws code 4, "CRC checksum
/// error"; Kept: a reader may go on, and then gets the bytes of the damaged block, so that what is left of a file can
/// be saved. After a failure of the source, the next read goes on with the part of the block that failed to arrive.
class KVCORE_API CRCInputStream : public InputStream
{
public:
    /// Chains onto `from`, which must outlive this stream.
    explicit CRCInputStream(InputStream & from);
    CRCInputStream(CRCInputStream const &) = delete;
    CRCInputStream & operator=(CRCInputStream const &) = delete;
    ~CRCInputStream() noexcept(false) override;

    void Read(char * data, int size) override;

private:
    static constexpr int blockSize = 4088;

    void ReadBlock();

    char block[blockSize];
    int position;      // the unread bytes run from here to the end of `block`
    int arriving;      // the length of a block of which only the front part has arrived, or 0
    bool payloadThere; // of that block
};
