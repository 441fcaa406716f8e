#include "AddressSpace.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kv::platform
{

AddressSpace::~AddressSpace()
{
    Clear();
}

void AddressSpace::Clear() noexcept
{
    if (pages != nullptr)
    {
        munmap(pages, room * sizeof(MappedPages));
    }
    pages = nullptr;
    count = room = 0;
}

bool AddressSpace::Grow() noexcept
{
    std::size_t const wanted = std::max<std::size_t>(room * 2, 0x10000 / sizeof(MappedPages));
    void * const memory = pages == nullptr
        ? mmap(nullptr, wanted * sizeof(MappedPages), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
        : mremap(pages, room * sizeof(MappedPages), wanted * sizeof(MappedPages), MREMAP_MAYMOVE);
    if (memory == MAP_FAILED)
    {
        return false;
    }
    pages = static_cast<MappedPages *>(memory);
    room = wanted;
    return true;
}

/// One line: "begin-end rwxp offset device inode name".
bool AddressSpace::Add(char const * line, char const * lineEnd) noexcept
{
    MappedPages entry{};
    auto const [dash, error1] = std::from_chars(line, lineEnd, entry.begin, 16);
    if (error1 != std::errc() || dash == lineEnd || *dash != '-')
    {
        return true;
    }
    auto const [rights, error2] = std::from_chars(dash + 1, lineEnd, entry.end, 16);
    if (error2 != std::errc() || lineEnd - rights < 6 || (count == room && !Grow()))
    {
        return error2 != std::errc() || lineEnd - rights < 6;
    }
    entry.readable = rights[1] == 'r';
    entry.writable = rights[2] == 'w';
    entry.executable = rights[3] == 'x';
    entry.shared = rights[4] == 's';
    char const * field = rights + 6;
    for (int skipped = 0; skipped < 2 && field != lineEnd; ++skipped)
    {
        field = std::min(std::find(field, lineEnd, ' ') + 1, lineEnd);
    }
    entry.ofFile = field != lineEnd && *field != '0';
    pages[count++] = entry;
    return true;
}

bool AddressSpace::ReadLines(int descriptor) noexcept
{
    char buffer[PATH_MAX * 2];
    std::size_t held = 0;
    for (;;)
    {
        ssize_t const got = read(descriptor, buffer + held, sizeof(buffer) - held);
        if (got < 0 && errno == EINTR)
        {
            continue;
        }
        if (got <= 0)
        {
            return got == 0;
        }
        char const * line = buffer;
        char const * const end = buffer + held + got;
        for (char const * stop; (stop = std::find(line, end, '\n')) != end; line = stop + 1)
        {
            if (!Add(line, stop))
            {
                return false;
            }
        }
        held = static_cast<std::size_t>(end - line);
        if (held == sizeof(buffer))
        {
            held = 0; // a name longer than any; the kernel's names are not
        }
        std::memmove(buffer, line, held);
    }
}

bool AddressSpace::Read() noexcept
{
    count = 0;
    int const descriptor = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return false;
    }
    // Before the reading, so that the memory for it is in it.
    bool const read = (room != 0 || Grow()) && ReadLines(descriptor);
    int const error = errno;
    close(descriptor);
    if (!read)
    {
        count = 0;
        errno = error;
    }
    return read;
}

MappedPages const * AddressSpace::Find(std::uintptr_t address) const noexcept
{
    return std::partition_point(begin(), end(), [address](MappedPages const & entry) { return entry.end <= address; });
}

} // namespace kv::platform
