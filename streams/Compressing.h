#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/streams/LastWrite.h>
#include <kvcore/streams/Streams.h>

struct z_stream_s;

/// Compresses what passes through it into one zlib stream (RFC 1950), without any framing of its own.
///
/// zlib's state is made with the first data: where nothing is written, nothing comes out, not even zlib's header. The
/// zlib stream is complete only after destruction. A flush after new data puts in a sync-flush point, at which a reader
/// has everything written so far.
///
/// A failure of zlib throws code 2 with zlib's own text. After a failed write downstream, the compressed bytes of that
/// write are gone, since zlib has given them away: no byte is written twice, and the zlib stream has a gap.
class KVCORE_API CompressingStream : public OutputStream
{
public:
    /// Chains onto `target`, which must outlive this stream. `level` is zlib's: 0 (store) to 9 (smallest), -1 for
    /// zlib's own choice; other negative values count as 0, and values above 9 as 9.
    CompressingStream(OutputStream & target, int level);
    CompressingStream(CompressingStream const &) = delete;
    CompressingStream & operator=(CompressingStream const &) = delete;
    /// Completes the zlib stream. Throws what that throws, unless an exception is on its way already.
    ~CompressingStream() noexcept(false) override;

    void Write(char const * data, int size) override;

protected:
    /// Puts in a sync-flush point if data came since the last one.
    void FlushSelf() override;

private:
    void Start();
    void InternalFlush(bool finish);

    int level;
    z_stream_s * zstream; // null until the first data
    bool pending;         // data went in since the last flush
    kv::detail::LastWrite lastWrite;
};

/// Reads a zlib stream. The reader has to know how much data it wants.
///
/// Kept: input is taken one byte at a time, so that nothing of the source is consumed that follows what zlib needed.
/// The zlib trailer stays unread behind the last byte of data, and its checksum is not tested; a read beyond the data
/// fails with code 2, as every failure of zlib does.
class KVCORE_API DecompressingStream : public InputStream
{
public:
    /// Chains onto `from`, which must outlive this stream.
    explicit DecompressingStream(InputStream & from);
    DecompressingStream(DecompressingStream const &) = delete;
    DecompressingStream & operator=(DecompressingStream const &) = delete;
    ~DecompressingStream() noexcept(false) override;

    void Read(char * data, int size) override;

private:
    void Start();

    z_stream_s * zstream; // null until the first read
    char inputByte;       // all the input that zlib is given at a time
};
