#pragma once

#include <memory>
#include <string>

#include <kvcore/platform/export.h>
#include <kvcore/streams/Streams.h>

namespace kv::detail
{
class MD5Context;
}

/// An MD5 digest (RFC 1321) as a value: 16 bytes in digest order, and nothing else in memory. It finds accidental
/// damage and equal content; it is no protection against somebody who wants two contents with one sum.
class KVCORE_API MD5Sum
{
public:
    /// The digest of no bytes, d41d8cd98f00b204e9800998ecf8427e.
    MD5Sum();
    MD5Sum(MD5Sum const & other) = default;
    MD5Sum & operator=(MD5Sum const & other) = default;

    /// The order of the bytes as unsigned numbers, the first byte first.
    bool operator<(MD5Sum const & other) const;
    bool operator<=(MD5Sum const & other) const;
    bool operator==(MD5Sum const & other) const;
    bool operator!=(MD5Sum const & other) const;
    bool operator>=(MD5Sum const & other) const;
    bool operator>(MD5Sum const & other) const;

    /// 32 digits, "0" to "9" and "A" to "F", the high half of each byte first.
    std::string HexString() const;
    /// Reads 32 digits of either case. Any other text gives false and leaves the value as it was.
    bool SetHexString(std::string const & text);

    /// 22 Base64 characters. The "==" that would follow is always the same and is left out.
    std::string Base64String() const;

private:
    friend class MD5SumStream;

    unsigned char bytes[16];
};

static_assert(sizeof(MD5Sum) == 16);

/// Computes the MD5 sum of what is written into it. It is the end of a chain.
class KVCORE_API MD5SumStream : public OutputStream
{
public:
    /// Starts a fresh sum.
    MD5SumStream();
    /// A stream's neighbours know one object, so a copy could only count apart from them, unseen.
    MD5SumStream(MD5SumStream const &) = delete;
    MD5SumStream & operator=(MD5SumStream const &) = delete;
    ~MD5SumStream() noexcept(false) override;

    void Write(char const * data, int size) override;

    /// Flushes everything that is chained in front of this stream, then gives the sum of all bytes from the start.
    /// Writing may go on afterwards.
    MD5Sum GetMD5Sum();

private:
    std::unique_ptr<kv::detail::MD5Context> const context;
};
