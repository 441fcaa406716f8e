#pragma once

// Reading a directory's names in large pieces, straight from the kernel.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kv::platform
{

/// Calls `entry(name, count)` with every name but "." and ".." until it gives false. Gives 0 or an errno value. The
/// descriptor is read from where it stands, and stays open.
template <class Entry>
int ReadDirectory(int descriptor, Entry && entry)
{
    alignas(dirent64) char buffer[16384];
    for (;;)
    {
        long const size = syscall(SYS_getdents64, descriptor, buffer, sizeof buffer);
        if (size <= 0)
        {
            return size == 0 ? 0 : errno;
        }
        for (long at = 0; at < size;)
        {
            auto const * const record = reinterpret_cast<dirent64 const *>(buffer + at);
            at += record->d_reclen;
            char const * const name = record->d_name;
            bool const dots = name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
            if (!dots && !entry(name, std::strlen(name)))
            {
                return 0;
            }
        }
    }
}

} // namespace kv::platform
