#include "ReportText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kv::platform
{

ReportText & ReportText::Put(char const * text)
{
    return Put(text, std::strlen(text));
}

ReportText & ReportText::Put(char const * text, std::size_t size)
{
    while (size > 0)
    {
        if (fill == sizeof buffer)
        {
            Flush();
        }
        std::size_t const part = std::min(size, sizeof buffer - fill);
        std::memcpy(buffer + fill, text, part);
        fill += part;
        text += part;
        size -= part;
    }
    return *this;
}

ReportText & ReportText::PutForeign(char const * text, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
    {
        unsigned char const byte = static_cast<unsigned char>(text[i]);
        Put(byte < 0x20 || byte == 0x7F ? "?" : text + i, 1);
    }
    return *this;
}

ReportText & ReportText::PutForeign(char16_t const * text, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
    {
        char32_t point = text[i];
        if (point >= 0xD800 && point < 0xDC00 && i + 1 < size && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000)
        {
            point = 0x10000 + ((point - 0xD800) << 10) + (char32_t{text[++i]} - 0xDC00);
        }
        PutPoint(point < 0x20 || (point >= 0x7F && point < 0xA0) || (point >= 0xD800 && point < 0xE000) ? U'?' : point);
    }
    return *this;
}

/// One character in UTF-8.
void ReportText::PutPoint(char32_t point)
{
    static constexpr unsigned char leads[] = {0, 0, 0xC0, 0xE0, 0xF0};
    std::size_t const count = point < 0x80 ? 1 : point < 0x800 ? 2 : point < 0x10000 ? 3 : 4;
    char bytes[4];
    for (std::size_t i = count; i-- > 1; point >>= 6)
    {
        bytes[i] = static_cast<char>(0x80 | (point & 0x3F));
    }
    bytes[0] = static_cast<char>(leads[count] | point);
    Put(bytes, count);
}

ReportText & ReportText::Number(std::uint64_t value, unsigned base, int digits)
{
    char text[24];
    std::size_t begin = sizeof text;
    do
    {
        text[--begin] = "0123456789ABCDEF"[value % base];
        value /= base;
        --digits;
    } while ((value != 0 || digits > 0) && begin > 0);
    return Put(text + begin, sizeof text - begin);
}

ReportText & ReportText::Decimal(std::uint64_t value, int digits)
{
    return Number(value, 10, digits);
}

ReportText & ReportText::Hex(std::uint64_t value, int digits)
{
    Put("0x");
    return Number(value, 16, digits);
}

void ReportText::Flush()
{
    std::size_t done = 0;
    while (done < fill && !failed)
    {
        ssize_t const written = write(file, buffer + done, fill - done);
        if (written > 0)
        {
            done += static_cast<std::size_t>(written);
            hasWritten = true;
        }
        else
        {
            failed = written == 0 || errno != EINTR;
        }
    }
    fill = 0;
}

} // namespace kv::platform
