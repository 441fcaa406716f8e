#include "ModuleFiles.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>

namespace kv::platform
{

namespace
{

/// What the format's own 32-bit offsets can reach.
constexpr off_t largestFile = 0x7FFFFFFF;

class Descriptor
{
public:
    explicit Descriptor(char const * native) noexcept : number(open(native, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    Descriptor(Descriptor const &) = delete;
    Descriptor & operator=(Descriptor const &) = delete;
    ~Descriptor()
    {
        if (number >= 0)
        {
            close(number);
        }
    }
    int Number() const noexcept
    {
        return number;
    }

private:
    int number;
};

} // namespace

bool ReadFormat(char const * native, FileFormat & format) noexcept
{
    Descriptor const file(native);
    struct stat status;
    if (file.Number() < 0 || fstat(file.Number(), &status) != 0)
    {
        return FailErrno();
    }
    if (!S_ISREG(status.st_mode))
    {
        return FailWith(S_ISDIR(status.st_mode) ? ERROR_ACCESS_DENIED : ERROR_BAD_EXE_FORMAT);
    }
    char magic[SELFMAG] = {};
    ssize_t const got = pread(file.Number(), magic, sizeof(magic), 0);
    format = got == SELFMAG && std::memcmp(magic, ELFMAG, SELFMAG) == 0 ? FileFormat::Elf
        : got >= 2 && magic[0] == 'M' && magic[1] == 'Z'                ? FileFormat::Pe
                                                                        : FileFormat::Unknown;
    return got >= 0 ? true : FailErrno();
}

MappedFile::MappedFile(MappedFile && other) noexcept
    : content(std::exchange(other.content, {})), identity(other.identity)
{
}

MappedFile & MappedFile::operator=(MappedFile && other) noexcept
{
    std::swap(content, other.content);
    std::swap(identity, other.identity);
    return *this;
}

MappedFile::~MappedFile()
{
    if (!content.empty())
    {
        munmap(const_cast<unsigned char *>(content.data()), content.size());
    }
}

bool MappedFile::Map(char const * native) noexcept
{
    Descriptor const file(native);
    struct stat status;
    if (file.Number() < 0 || fstat(file.Number(), &status) != 0)
    {
        return FailErrno();
    }
    if (!S_ISREG(status.st_mode) || status.st_size < 64 || status.st_size > largestFile)
    {
        return FailWith(ERROR_BAD_EXE_FORMAT);
    }
    std::size_t const size = static_cast<std::size_t>(status.st_size);
    void * const place = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.Number(), 0);
    if (place == MAP_FAILED)
    {
        return FailErrno();
    }
    *this = MappedFile();
    content = Bytes(static_cast<unsigned char const *>(place), size);
    identity = {status.st_dev, status.st_ino};
    return true;
}

} // namespace kv::platform
