#pragma once

#include <cstddef>
#include <string>
#include <type_traits>

#include <kvcore/core/NotCopyable.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Common base of all byte streams: no data, a virtual destructor, and the type of every stream failure.
///
/// Threads: a stream has no locks. It belongs to one thread at a time, and so do the streams that it is chained to.
class KVCORE_API StreamBase : public NotCopyable
{
public:
    /// What a stream throws, by value. The catcher has nothing to release.
    ///
    /// | code | meaning |
    /// |---|---|
    /// | 0 | imaging library |
    /// | 1 | file error of the operating system |
    /// | 2 | zlib |
    /// | 3 | malformed data |
    /// | 4 | checksum |
    /// | 5 | data ran out |
    /// | 6 | object version too high |
    struct KVCORE_API Exception
    {
        int code;
        String text;
    };

    StreamBase();
    /// Nothing beyond construction: it exists for stream classes that define what a copy of them is.
    StreamBase(StreamBase const & other);
    StreamBase & operator=(StreamBase const &) = delete;
    /// May throw in derived classes: a stream that holds bytes back writes them when it is destroyed.
    virtual ~StreamBase() noexcept(false);
};

/// Marks a 64-bit integer for the stream operators, which have no plain form for 64 bits: the width of a stored number
/// is to be read at the place that stores it. It holds a pointer, so the number must outlive the expression.
///
///     out << _strm64(position);       // an lvalue, const or not
///     out << _strm64(&position);      // the same
///     out << _strm64<__int64 const>(first + second);
///     in >> _strm64(position);
template <typename T>
class _strm64
{
    static_assert(std::is_integral_v<T> && sizeof(T) == 8, "_strm64 marks 64-bit integers");

public:
    explicit _strm64(T & number) : value(&number) {}
    explicit _strm64(T * number) : value(number) {}

    T * const value;
};

/// A stream that bytes are written into. The classes derived from it are the ends of chains (memory, files, sums) and
/// the filters, which change the bytes and pass them on.
///
/// A chain is built from its end: each filter takes its neighbour by reference. Nobody owns a neighbour; a chain is
/// destroyed from its head, since a filter may still hold bytes back, which its destructor writes downstream. Such a
/// destructor throws what the write throws, unless an exception is already on its way: then it tries to write, and
/// drops a second failure, because a program cannot carry two.
///
/// No stream has a failed state: after a failure the next call simply tries again. Failures pass through a chain
/// unchanged. What a composite form wrote before its failure stays written.
///
/// Numbers go out as they lie in memory, in little-endian order.
class KVCORE_API OutputStream : public StreamBase
{
public:
    /// Chains this stream onto `newDownstream`, or makes it the end of a chain when that is null.
    explicit OutputStream(OutputStream * newDownstream);
    /// Kept: copies both pointers and leaves the neighbours as they are: they go on knowing `other` alone. When either
    /// of the two is destroyed, it unhooks the neighbours, so the other must not outlive them.
    OutputStream(OutputStream const & other);
    OutputStream & operator=(OutputStream const &) = delete;
    /// Unhooks this stream from both neighbours. They are not hooked to each other. Kept: the downstream neighbour is
    /// then without an upstream, also if another stream has been chained onto it since.
    ~OutputStream() noexcept(false) override;

    /// Writes `size` bytes at `data`. A negative size writes nothing.
    virtual void Write(char const * data, int size) = 0;

protected:
    /// Passes on what this stream holds back. The default does nothing.
    virtual void FlushSelf();

public:
    /// Flushes the streams that write into this one, from the head of the chain on, and then this one. It never goes
    /// downstream: flush the last stream of a chain to flush the whole chain.
    void Flush();

    /// One byte, 0 or 1.
    OutputStream & operator<<(bool value)
    {
        return Put(&value, 1);
    }
    /// One byte.
    OutputStream & operator<<(char value)
    {
        return Put(&value, 1);
    }
    /// One byte.
    OutputStream & operator<<(unsigned char value)
    {
        return Put(&value, 1);
    }
    /// Two bytes.
    OutputStream & operator<<(short value)
    {
        return Put(&value, 2);
    }
    /// Two bytes.
    OutputStream & operator<<(unsigned short value)
    {
        return Put(&value, 2);
    }
    /// Four bytes.
    OutputStream & operator<<(int value)
    {
        return Put(&value, 4);
    }
    /// Four bytes.
    OutputStream & operator<<(unsigned int value)
    {
        return Put(&value, 4);
    }
    /// Kept: four bytes on every target, also where `long` is wider in memory. Then its low 32 bits go out, and a value
    /// that needs more is cut off. Use _strm64 for 64-bit values; `std::int64_t` is a `long` on some targets.
    OutputStream & operator<<(long value)
    {
        return *this << static_cast<int>(value);
    }
    /// Four bytes on every target; see `long`.
    OutputStream & operator<<(unsigned long value)
    {
        return *this << static_cast<unsigned int>(value);
    }
    /// Four bytes, IEEE 754.
    OutputStream & operator<<(float value)
    {
        return Put(&value, 4);
    }
    /// Eight bytes, IEEE 754.
    OutputStream & operator<<(double value)
    {
        return Put(&value, 8);
    }
    /// Eight bytes.
    template <typename T>
    OutputStream & operator<<(_strm64<T> const & marked)
    {
        std::remove_cv_t<T> value = *marked.value;
        return Put(&value, 8);
    }
    /// Sixteen bytes: Data1, Data2, Data3 and Data4 as they lie in memory.
    OutputStream & operator<<(GUID const & value)
    {
        GUID copy = value;
        return Put(&copy, 16);
    }

    /// The 32-bit count of bytes, then the bytes up to the NUL, which is left out. Kept: the count and the body are two
    /// writes, also for an empty text, whose body is a write of no bytes. A text of more than 2^31 - 1 bytes throws
    /// code 3, "Invalid string length", before anything is written.
    OutputStream & operator<<(char const * text);
    /// As `char const *`, with embedded NULs.
    OutputStream & operator<<(std::string const & text);
    /// The 32-bit count of bytes, which is twice the number of elements, then the UTF-16 code units, without a NUL.
    /// Otherwise as `char const *`. This is the form of String, too.
    OutputStream & operator<<(WString const & text);

    /// There is no wire form for these. Without the deletion they would go out as some other type: a pointer as a
    /// bool, a character as an int.
    OutputStream & operator<<(void const *) = delete;
    OutputStream & operator<<(signed char) = delete;
    OutputStream & operator<<(WCHAR) = delete;
    OutputStream & operator<<(__int64) = delete;
    OutputStream & operator<<(unsigned __int64) = delete;

protected:
    /// The stream that writes into this one, set by that stream's constructor; null at the head of a chain.
    OutputStream * upstream;
    /// The stream that this one writes into; null at the end of a chain, and after that stream was destroyed.
    OutputStream * downstream;

private:
    // Takes copies alone: a CryptingOutputStream changes what it is given for the length of the call.
    OutputStream & Put(void * value, int size)
    {
        Write(static_cast<char const *>(value), size);
        return *this;
    }
};

/// A stream that bytes are read from: the mirror of OutputStream. The source is not told of its reader, so nothing is
/// unhooked here: the source must outlive the stream.
class KVCORE_API InputStream : public StreamBase
{
public:
    /// `newSource` is null for a stream that reads from storage of its own.
    explicit InputStream(InputStream * newSource);
    InputStream(InputStream const & other);
    InputStream & operator=(InputStream const &) = delete;
    ~InputStream() noexcept(false) override;

    /// Delivers exactly `size` bytes to `data`, or throws. There is no short read, no end-of-stream result, and no way
    /// to ask how much is left. A size of 0 always succeeds; a negative one does nothing.
    virtual void Read(char * data, int size) = 0;

    /// One byte; any value but 0 is true.
    InputStream & operator>>(bool & value)
    {
        char stored;
        Read(&stored, 1);
        value = stored != 0;
        return *this;
    }
    /// One byte.
    InputStream & operator>>(char & value)
    {
        return Get(&value, 1);
    }
    /// One byte.
    InputStream & operator>>(unsigned char & value)
    {
        return Get(&value, 1);
    }
    /// Two bytes.
    InputStream & operator>>(short & value)
    {
        return Get(&value, 2);
    }
    /// Two bytes.
    InputStream & operator>>(unsigned short & value)
    {
        return Get(&value, 2);
    }
    /// Four bytes.
    InputStream & operator>>(int & value)
    {
        return Get(&value, 4);
    }
    /// Four bytes.
    InputStream & operator>>(unsigned int & value)
    {
        return Get(&value, 4);
    }
    /// Four bytes on every target, with the sign carried on where `long` is wider.
    InputStream & operator>>(long & value)
    {
        int narrow;
        Read(reinterpret_cast<char *>(&narrow), 4);
        value = narrow;
        return *this;
    }
    /// Four bytes on every target, with zeros above where `unsigned long` is wider.
    InputStream & operator>>(unsigned long & value)
    {
        unsigned int narrow;
        Read(reinterpret_cast<char *>(&narrow), 4);
        value = narrow;
        return *this;
    }
    /// Four bytes, IEEE 754.
    InputStream & operator>>(float & value)
    {
        return Get(&value, 4);
    }
    /// Eight bytes, IEEE 754.
    InputStream & operator>>(double & value)
    {
        return Get(&value, 8);
    }
    /// Eight bytes.
    template <typename T>
    InputStream & operator>>(_strm64<T> const & marked)
    {
        static_assert(!std::is_const_v<T>, "a constant cannot be read into");
        return Get(marked.value, 8);
    }
    /// Sixteen bytes.
    InputStream & operator>>(GUID & value)
    {
        return Get(&value, 16);
    }

    /// Reads what `operator<<` wrote for a narrow string. A negative count throws code 3, "Invalid string length". The
    /// only upper limit is memory, and memory is taken as the bytes arrive: a count that the source does not back ends
    /// in the source's own failure. `text` keeps its value in case of a failure.
    InputStream & operator>>(std::string & text);
    /// The same for wide strings, String among them. An odd count is as invalid as a negative one.
    InputStream & operator>>(WString & text);

protected:
    /// The stream that this one reads from, or null.
    InputStream * source;

private:
    InputStream & Get(void * value, int size)
    {
        Read(static_cast<char *>(value), size);
        return *this;
    }
};
