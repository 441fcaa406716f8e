#include <kvcore/tools/support/Host.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kv::tools::host
{

std::vector<std::string> Arguments(int count, char ** values)
{
    if (count < 1)
    {
        return {};
    }
    return {values + 1, values + count};
}

void PrepareStandardStreams()
{
    // Bytes pass unchanged as it is. SIGPIPE keeps its default: it ends the program quietly, which is what a pipeline
    // expects; where the caller has it ignored, writing fails with EPIPE instead.
}

namespace
{

template <class Call>
auto Retried(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
    {
        result = call();
    }
    return result;
}

} // namespace

int OpenForReading(std::string const & path)
{
    return Retried([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
}

int OpenForWriting(std::string const & path)
{
    return Retried([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); });
}

std::ptrdiff_t Read(int descriptor, char * data, std::size_t size)
{
    return Retried([&] { return ::read(descriptor, data, size); });
}

std::ptrdiff_t Write(int descriptor, char const * data, std::size_t size)
{
    return Retried([&] { return ::write(descriptor, data, size); });
}

int Close(int descriptor)
{
    // Not retried: after EINTR the descriptor is gone all the same.
    return ::close(descriptor) == 0 || errno == EINTR ? 0 : -1;
}

bool IsSameFile(std::string const & first, std::string const & second)
{
    struct stat a = {};
    struct stat b = {};
    return ::stat(first.c_str(), &a) == 0 && ::stat(second.c_str(), &b) == 0 && S_ISREG(a.st_mode) &&
        a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace kv::tools::host
