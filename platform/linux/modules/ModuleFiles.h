#pragma once

// Files that are mapped for what they hold, not to run: Windows' executables and libraries, and this system's as data.

#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include <sys/types.h>

#include <kvcore/platform/include/basetypes.h>
#include <kvcore/platform/types.h>

namespace kv::platform
{

using Bytes = std::span<unsigned char const>;

enum class FileFormat
{
    Elf,
    Pe,
    Unknown,
};

/// What a file says to be, by its first bytes. False with the last error set if it cannot be read.
bool ReadFormat(char const * native, FileFormat & format) noexcept;

/// A file in memory, read-only, from its first byte on.
class MappedFile
{
public:
    MappedFile() noexcept = default;
    MappedFile(MappedFile && other) noexcept;
    MappedFile & operator=(MappedFile && other) noexcept;
    ~MappedFile();

    /// False with the last error set; ERROR_BAD_EXE_FORMAT for what is too short or too long to be a module.
    bool Map(char const * native) noexcept;

    Bytes Content() const noexcept
    {
        return content;
    }
    /// The file's number on its device and that device's, to know it again.
    std::pair<dev_t, ino_t> Identity() const noexcept
    {
        return identity;
    }

private:
    Bytes content;
    std::pair<dev_t, ino_t> identity;
};

} // namespace kv::platform
