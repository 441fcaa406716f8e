#pragma once

#include <kvcore/platform/export.h>
#include <kvcore/streams/LastWrite.h>
#include <kvcore/streams/Streams.h>

class MemoryOutputStream;

/// Turns a byte stream into Base64 text (RFC 4648, with "=" padding), with or without line breaks.
///
/// Up to two bytes are held back until their group of three is complete. A flush closes the group with padding, also
/// in the middle of the text; Base64DecodingStream copes with that.
///
/// Each group of four characters is one write downstream, and each line feed another. After a failure downstream the
/// stream has taken the bytes of the groups before, and none from the group that failed on: a Write that completes one
/// group at most can be repeated. A line feed that failed is the first thing that the next call writes.
class KVCORE_API Base64EncodingStream : public OutputStream
{
public:
    /// Chains onto `target`, which must outlive this stream. A line feed follows every `lineWidth` characters, rounded
    /// down to whole groups of four, and at least one; a negative width means no line breaks.
    Base64EncodingStream(OutputStream & target, int lineWidth);
    Base64EncodingStream(Base64EncodingStream const &) = delete;
    Base64EncodingStream & operator=(Base64EncodingStream const &) = delete;
    /// Closes the last group and the last line, if they hold anything. Throws what those writes throw, unless an
    /// exception is on its way already.
    ~Base64EncodingStream() noexcept(false) override;

    void Write(char const * data, int size) override;

    /// The characters that `size` bytes take, without line breaks: ((size + 2) / 3) * 4, and 0 for a negative size. A
    /// result above 2^31 - 1, from 1,610,612,734 bytes on, throws std::length_error.
    static int Base64MemoryEncodedSize(int size);
    /// Encodes in one go, without line breaks or terminator. `target` has room for Base64MemoryEncodedSize(size)
    /// characters. A negative size writes nothing.
    static void Base64MemoryEncode(char const * data, int size, char * target);

protected:
    /// Writes the bytes held back as a padded group.
    void FlushSelf() override;

private:
    void WritePending();
    void WriteGroup(char const * text);
    void FinishLine();
    void WriteLineFeed();
    MemoryOutputStream * TargetInMemory() const;
    unsigned char const *
    WriteIntoMemory(unsigned char const * next, unsigned char const * end, MemoryOutputStream & memory);

    int groupsPerLine; // 0 for no line breaks
    int groupCount;    // on the current line
    unsigned char pending[3];
    int pendingSize;
    kv::detail::LastWrite lastWrite;
};

/// Reads what Base64EncodingStream wrote, and other Base64 text.
///
/// Space, tab, line feed and carriage return are skipped wherever they stand. Every other byte that is neither in the
/// alphabet nor "=" throws code 3, "Base64 format error"; so do all bytes from 0x80 on. A group of four may have
/// padding in any place: it gives the bytes before its first "=", and none if that is its first or second character.
/// Padding does not end the text.
///
/// The source is read one byte at a time and never beyond the group that is needed, so what follows the text stays
/// unread. The end of the text is the failure that the source then reports. After such a failure the next read goes on
/// with the group under way; after a format error, it starts a new group behind the illegal byte.
class KVCORE_API Base64DecodingStream : public InputStream
{
public:
    /// Chains onto `from`, which must outlive this stream.
    explicit Base64DecodingStream(InputStream & from);
    Base64DecodingStream(Base64DecodingStream const &) = delete;
    Base64DecodingStream & operator=(Base64DecodingStream const &) = delete;
    ~Base64DecodingStream() noexcept(false) override;

    void Read(char * data, int size) override;

    /// The most bytes that `size` characters can give: (size / 4) * 3, and 0 for a negative size.
    static int Base64MemoryDecodedMaxSize(int size);
    /// Decodes in one go, by the rules above, and returns the size of the result. `target` has room for
    /// Base64MemoryDecodedMaxSize(size) bytes, all of which may be written to. Returns -1 for an illegal byte, and if
    /// the text ends inside a group.
    ///
    /// Kept: a skipped byte behind the last group starts another group, so text that ends in a line feed gives -1.
    /// Callers tell a complete value from a cut line by it.
    static int Base64MemoryDecode(char const * data, int size, char * target);

private:
    void ReadGroup();

    unsigned char decoded[3]; // the bytes not yet delivered stand at its end
    int decodedCount;
    unsigned char group[4]; // the values of the group under way
    int groupSize;
};
