#pragma once

// Narrow text inside the wide printf: UTF-8, this layer's ANSI code page, read without a buffer.

#include <cstddef>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// Calls `put` with the UTF-16 units of `text`. A byte that is no part of well-formed UTF-8 becomes the unit of its own
/// value: nothing is lost, and text in a single-byte code page still reads as the run-time library's "C" locale has it.
template <typename Put>
void WidenNarrow(char const * text, std::size_t length, Put put)
{
    auto const byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    std::size_t i = 0;
    while (i < length)
    {
        unsigned const lead = byte(i);
        unsigned const tail = lead < 0xC2 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : lead < 0xF5 ? 3 : 0;
        std::uint32_t scalar = tail == 0 ? lead : lead & (0x3Fu >> tail);
        unsigned read = 0;
        while (read < tail && i + read + 1 < length && (byte(i + read + 1) & 0xC0) == 0x80)
        {
            ++read;
            scalar = scalar << 6 | (byte(i + read) & 0x3Fu);
        }
        bool const overlong = (tail == 2 && scalar < 0x800) || (tail == 3 && scalar < 0x10000);
        if (read != tail || overlong || (scalar >= 0xD800 && scalar < 0xE000) || scalar > 0x10FFFF)
        {
            scalar = lead;
            read = 0;
        }
        i += read + 1;
        if (scalar >= 0x10000)
        {
            put(static_cast<WCHAR>(0xD7C0 + (scalar >> 10)));
            put(static_cast<WCHAR>(0xDC00 | (scalar & 0x3FF)));
        }
        else
        {
            put(static_cast<WCHAR>(scalar));
        }
    }
}

} // namespace kv::platform
