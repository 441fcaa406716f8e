#include "CallSites.h"

#include <cstdint>
#include <cstring>

namespace kv::platform
{

namespace
{

// The table's encodings, as far as compilers write them for places within a function.
constexpr unsigned char encodingOmitted = 0xFF;
constexpr unsigned char encodingLeb = 0x01;
constexpr unsigned char encodingWord4 = 0x03;

std::uint64_t ReadLeb(unsigned char const *& at) noexcept
{
    std::uint64_t value = 0;
    unsigned shift = 0;
    unsigned char byte;
    do
    {
        byte = *at++;
        value |= shift < 64 ? std::uint64_t{byte & 0x7Fu} << shift : 0;
        shift += 7;
    } while ((byte & 0x80) != 0);
    return value;
}

std::uint64_t ReadOffset(unsigned char const *& at, unsigned char encoding) noexcept
{
    if (encoding == encodingLeb)
    {
        return ReadLeb(at);
    }
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    at += sizeof value;
    return value;
}

} // namespace

// The table is the compiler's own, in the program's image: start of the landing pads, table of types, then the call
// sites in the order of their addresses, each with its start, length, landing pad and action.
bool MayThrow(_Unwind_Context * frame, _Unwind_Ptr instruction) noexcept
{
    unsigned char const * at = static_cast<unsigned char const *>(_Unwind_GetLanguageSpecificData(frame));
    if (at == nullptr)
    {
        return true; // nothing to run there, and everything passes
    }
    if (*at++ != encodingOmitted)
    {
        return true;
    }
    if (*at++ != encodingOmitted)
    {
        ReadLeb(at);
    }
    unsigned char const encoding = *at++;
    if (encoding != encodingLeb && encoding != encodingWord4)
    {
        return true;
    }
    std::uint64_t const size = ReadLeb(at);
    unsigned char const * const end = at + size;
    std::uint64_t const place = instruction - _Unwind_GetRegionStart(frame);
    while (at < end)
    {
        std::uint64_t const start = ReadOffset(at, encoding);
        std::uint64_t const length = ReadOffset(at, encoding);
        ReadOffset(at, encoding);
        ReadLeb(at);
        if (place >= start && place - start < length)
        {
            return true;
        }
    }
    return false;
}

} // namespace kv::platform
