#include <algorithm>
#include <cerrno>

#include <kvcore/platform/include/crt.h>
#include <kvcore/platform/linux/crt/IntegerText.h>

namespace
{

int Fail(int code)
{
    errno = code;
    return code;
}

template <typename Unsigned>
int PrintUnsigned(Unsigned magnitude, bool negative, WCHAR * buffer, std::size_t capacity, int radix)
{
    if (buffer == nullptr || capacity == 0)
    {
        return Fail(EINVAL);
    }
    if (radix == 10)
    {
        std::size_t const length = kv::platform::CountDecimalDigits(magnitude) + std::size_t{negative};
        if (length >= capacity)
        {
            *buffer = 0;
            return Fail(ERANGE);
        }
        // A negative number has at least one digit behind its sign, so the sign is what is left over.
        *buffer = u'-';
        buffer[length] = 0;
        kv::platform::WriteDecimalBackward(magnitude, buffer + length);
        return 0;
    }
    *buffer = 0;
    if (radix < 2 || radix > 36)
    {
        return Fail(EINVAL);
    }
    WCHAR digits[64];
    WCHAR * const end = digits + 64;
    WCHAR * const begin =
        kv::platform::WriteRadixBackward(magnitude, static_cast<unsigned>(radix), WCHAR{u'a' - 10}, end);
    std::size_t const length = static_cast<std::size_t>(end - begin);
    if (length >= capacity)
    {
        return Fail(ERANGE);
    }
    *std::copy(begin, end, buffer) = 0;
    return 0;
}

template <typename Unsigned, typename Signed>
int PrintSigned(Signed value, WCHAR * buffer, std::size_t capacity, int radix)
{
    // Only base 10 knows a sign: any other radix prints the bits.
    bool const negative = radix == 10 && value < 0;
    Unsigned const bits = static_cast<Unsigned>(value);
    return PrintUnsigned(negative ? Unsigned{0} - bits : bits, negative, buffer, capacity, radix);
}

} // namespace

int _itow_s(int value, WCHAR * buffer, std::size_t capacity, int radix)
{
    return PrintSigned<std::uint32_t>(value, buffer, capacity, radix);
}

int _ultow_s(DWORD value, WCHAR * buffer, std::size_t capacity, int radix)
{
    return PrintUnsigned(value, false, buffer, capacity, radix);
}

int _i64tow_s(__int64 value, WCHAR * buffer, std::size_t capacity, int radix)
{
    return PrintSigned<std::uint64_t>(value, buffer, capacity, radix);
}

int _ui64tow_s(unsigned __int64 value, WCHAR * buffer, std::size_t capacity, int radix)
{
    return PrintUnsigned(std::uint64_t{value}, false, buffer, capacity, radix);
}
