// The reads of values, strings and memory blocks from any bytes, beside the wire format's rules.

#include <kvcore/core/String.h>
#include <kvcore/streams/MemoryBlock.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Fuzz.h"

namespace
{

/// A walk through the bytes by the wire format's rules.
class Reference
{
public:
    explicit Reference(std::string const & wire) : bytes(wire) {}

    /// Whether `size` bytes are there; they are taken if so.
    bool Take(std::size_t size, std::string & target)
    {
        if (bytes.size() - at < size)
        {
            return false;
        }
        target.assign(bytes, at, size);
        at += size;
        return true;
    }

    /// 0, or the code of the failure of a counted body in elements of `width` bytes.
    int TakeCounted(std::int32_t width, std::string & target)
    {
        std::string count;
        if (!Take(4, count))
        {
            return 5;
        }
        std::int32_t size;
        std::memcpy(&size, count.data(), sizeof(size));
        if (size < 0 || size % width != 0)
        {
            return 3;
        }
        return Take(static_cast<std::size_t>(size), target) ? 0 : 5;
    }

private:
    std::string const & bytes;
    std::size_t at = 0;
};

/// 0, or the code of the failure of `read`.
template <class Read>
int CodeOf(Read read)
{
    try
    {
        read();
        return 0;
    }
    catch (StreamBase::Exception const & exception)
    {
        return exception.code;
    }
}

template <class T>
int CheckValue(MemoryInputStream & stream, Reference & reference)
{
    T value{};
    std::string expected;
    int const code = CodeOf([&] { stream >> value; });
    int const expectedCode = reference.Take(sizeof(T), expected) ? 0 : 5;
    fuzz::Check(code == expectedCode, "a value's read has another result");
    fuzz::Check(
        code != 0 || std::memcmp(&value, expected.data(), sizeof(T)) == 0, "a value's read gives another value");
    return code;
}

int CheckNarrow(MemoryInputStream & stream, Reference & reference)
{
    std::string text = "before";
    std::string expected;
    int const code = CodeOf([&] { stream >> text; });
    fuzz::Check(code == reference.TakeCounted(1, expected), "a string's read has another result");
    fuzz::Check(code != 0 || text == expected, "a string's read gives another text");
    return code;
}

int CheckWide(MemoryInputStream & stream, Reference & reference)
{
    String text(TEXT("before"));
    std::string expected;
    int const code = CodeOf([&] { stream >> text; });
    fuzz::Check(code == reference.TakeCounted(2, expected), "a wide string's read has another result");
    fuzz::Check(
        code != 0 ||
            (text.size() * 2 == expected.size() && std::memcmp(text.data(), expected.data(), expected.size()) == 0),
        "a wide string's read gives another text");
    return code;
}

int CheckBlock(MemoryInputStream & stream, Reference & reference)
{
    MemoryBlock block(3, 'x');
    std::string expected;
    int const code = CodeOf([&] { stream >> block; });
    int const expectedCode = reference.TakeCounted(1, expected);
    fuzz::Check((code == 0) == (expectedCode == 0), "a block's read has another result");
    fuzz::Check(
        code != 0 ||
            (static_cast<std::size_t>(block.size()) == expected.size() &&
             std::equal(expected.begin(), expected.end(), static_cast<char const *>(block))),
        "a block's read gives other bytes");
    return code;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    // The first eight bytes choose what is read, over and over; the rest is the wire.
    fuzz::Input input(data, size);
    std::uint8_t kinds[8];
    for (std::uint8_t & kind : kinds)
    {
        kind = input.Byte();
    }
    std::string const wire = input.Rest();
    fuzz::Exact<char> const exact(wire.data(), wire.size());
    MemoryInputStream stream(exact.Data(), static_cast<int>(exact.Size()));
    Reference reference(wire);
    using Check = int (*)(MemoryInputStream &, Reference &);
    Check const checks[] = {
        CheckNarrow,
        CheckWide,
        CheckBlock,
        CheckValue<char>,
        CheckValue<short>,
        CheckValue<int>,
        CheckValue<unsigned int>,
        CheckValue<float>,
        CheckValue<double>,
        CheckValue<GUID>,
        CheckValue<unsigned short>};
    for (std::size_t i = 0;; ++i)
    {
        if (checks[kinds[i % 8] % std::size(checks)](stream, reference) != 0)
        {
            return 0;
        }
        if (i == 8 * wire.size() + 8)
        {
            return 0;
        }
    }
}
