#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/streams/Streams.h>

/// Passes on the complement of every byte. There is no key: this hides text from a casual look and protects nothing.
///
/// Kept: the bytes are complemented in the caller's buffer, `char const *` or not, and put back before Write returns,
/// also when it throws. So the stream needs no buffer, whatever the size; but the memory must be writable, and no other
/// thread may look at it during the call.
class KVCORE_API CryptingOutputStream : public OutputStream
{
public:
    /// Chains onto `target`, which must outlive this stream.
    explicit CryptingOutputStream(OutputStream & target);
    ~CryptingOutputStream() noexcept(false) override;

    void Write(char const * data, int size) override;
};

/// Delivers the complement of every byte of its source.
class KVCORE_API CryptingInputStream : public InputStream
{
public:
    /// Chains onto `from`, which must outlive this stream.
    explicit CryptingInputStream(InputStream & from);
    ~CryptingInputStream() noexcept(false) override;

    void Read(char * data, int size) override;
};
