#include "ProcFiles.h"

#include <cstring>
#include <sys/syscall.h>

namespace kv::platform
{

char const * LineReader::Next()
{
    if (!file)
    {
        return nullptr;
    }
    for (;;)
    {
        char * const line = buffer + begin;
        char * const lineEnd = static_cast<char *>(std::memchr(line, '\n', end - begin));
        if (lineEnd != nullptr)
        {
            *lineEnd = 0;
            begin = static_cast<std::size_t>(lineEnd - buffer) + 1;
            return line;
        }
        std::memmove(buffer, line, end - begin);
        end -= begin;
        begin = 0;
        ssize_t const got = end < sizeof buffer - 1 ? read(file.Get(), buffer + end, sizeof buffer - 1 - end) : 0;
        if (got <= 0)
        {
            bool const rest = end > 0;
            buffer[end] = 0;
            end = 0;
            return rest ? buffer : nullptr;
        }
        end += static_cast<std::size_t>(got);
    }
}

std::size_t ReadStart(char const * path, char * buffer, std::size_t capacity)
{
    Descriptor const file(open(path, O_RDONLY | O_CLOEXEC));
    ssize_t const got = file ? read(file.Get(), buffer, capacity - 1) : 0;
    std::size_t const size = got > 0 ? static_cast<std::size_t>(got) : 0;
    buffer[size] = 0;
    return size;
}

char const * FolderReader::Next()
{
    // The kernel's own record: number, offset, 16 bits of length, a kind, the name.
    constexpr long lengthAt = 16;
    constexpr long nameAt = 19;
    if (position >= end)
    {
        position = 0;
        end = folder ? syscall(SYS_getdents64, folder.Get(), buffer, sizeof buffer) : 0;
        if (end <= 0)
        {
            end = 0;
            return nullptr;
        }
    }
    unsigned short length;
    std::memcpy(&length, buffer + position + lengthAt, sizeof length);
    char const * const name = buffer + position + nameAt;
    position += length;
    return name;
}

} // namespace kv::platform
