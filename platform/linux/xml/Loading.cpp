#include "Loading.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <libxml/uri.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/messages.h>
#include <kvcore/platform/include/objbase.h>
#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/paths/NativePath.h>

#include "Decoding.h"
#include "Objects.h"
#include "TreeBuilder.h"

namespace kv::platform
{

namespace
{

constexpr HRESULT documentError = E_FAIL;

std::string SystemReason(DWORD error)
{
    WCHAR text[512];
    DWORD const length = FormatMessageW(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text, 512, nullptr);
    std::string reason = Utf8Of(text, length);
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == '\r'))
    {
        reason.pop_back();
    }
    return reason + '\n';
}

bool FailToOpen(DWORD error, Problem & problem)
{
    problem.code = static_cast<HRESULT>(0x80070000u | error);
    problem.reason = SystemReason(error);
    return false;
}

class File
{
public:
    explicit File(char const * path) : descriptor(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    File(File const &) = delete;
    File & operator=(File const &) = delete;
    ~File()
    {
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    int const descriptor;
};

/// The path that a file: URL stands for, or the path as it is.
std::u16string PathOf(WCHAR const * source)
{
    if (std::u16string_view(source).substr(0, 5) != u"file:")
    {
        return source;
    }
    WCHAR path[2084];
    DWORD capacity = 2084;
    return SUCCEEDED(PathCreateFromUrlW(source, path, &capacity, 0)) ? path : source;
}

SharedTree Load(std::string_view bytes, char const * url, LoadOptions const & options, Problem & problem)
{
    std::string storage;
    std::string_view text = bytes;
    if (!options.ignoreEncoding && !DecodeDocument(bytes, storage, text, problem))
    {
        return nullptr;
    }
    return BuildTree(text, url, options, problem);
}

/// Reads to the end, wherever that is by then.
bool ReadOpenFile(int descriptor, std::size_t size, std::string & bytes)
{
    std::size_t done = 0;
    for (;;)
    {
        bytes.resize(std::max<std::size_t>(size + 1, done + 0x10000));
        ssize_t const count = read(descriptor, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR)
        {
            return false;
        }
        if (count == 0 || done > INT_MAX)
        {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
        size = std::max(size, done * 3 / 2);
    }
    bytes.resize(done);
    return true;
}

} // namespace

bool ReadNativeFile(char const * path, std::string & bytes, Problem & problem)
{
    File const file(path);
    struct stat status;
    if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0)
    {
        return FailToOpen(ErrorOfErrno(errno), problem);
    }
    if (!S_ISREG(status.st_mode))
    {
        return FailToOpen(ERROR_ACCESS_DENIED, problem); // as every open of a directory fails
    }
    if (status.st_size > INT_MAX)
    {
        return FailToOpen(ERROR_FILE_TOO_LARGE, problem);
    }
    if (!ReadOpenFile(file.descriptor, static_cast<std::size_t>(status.st_size), bytes))
    {
        return FailToOpen(ErrorOfErrno(errno), problem);
    }
    return bytes.size() <= INT_MAX || FailToOpen(ERROR_FILE_TOO_LARGE, problem);
}

std::string NativePathInUrl(char const * url)
{
    if (std::strncmp(url, "file:", 5) != 0)
    {
        return std::strstr(url, "://") == nullptr ? url : std::string();
    }
    url += 5;
    if (std::strncmp(url, "//", 2) == 0)
    {
        url += std::strncmp(url, "//localhost/", 12) == 0 ? 11 : 2;
    }
    std::unique_ptr<char, void (*)(void *)> const path(
        *url == '/' ? xmlURIUnescapeString(url, 0, nullptr) : nullptr, [](void * text) { xmlFree(text); });
    return path ? path.get() : std::string();
}

SharedTree LoadMemory(char const * data, std::size_t size, LoadOptions const & options, Problem & problem)
{
    if (size > INT_MAX)
    {
        FailToOpen(ERROR_FILE_TOO_LARGE, problem);
        return nullptr;
    }
    return Load({data, size}, nullptr, options, problem);
}

SharedTree LoadNamed(char const * url, LoadOptions const & options, Problem & problem)
{
    std::string const path = NativePathInUrl(url);
    std::string bytes;
    if (path.empty())
    {
        FailToOpen(ERROR_PATH_NOT_FOUND, problem);
        return nullptr;
    }
    return ReadNativeFile(path.c_str(), bytes, problem) ? Load(bytes, path.c_str(), options, problem) : nullptr;
}

SharedTree LoadFile(WCHAR const * source, LoadOptions const & options, Problem & problem)
{
    struct Named
    {
        Problem & problem;
        WCHAR const * source;
        ~Named()
        {
            problem.url = source;
        }
    } const named{problem, source}; // the URL of a document that was read is told in this place, too
    std::u16string const path = PathOf(source);
    if (path.find(u"://") != std::u16string::npos)
    {
        problem.code = documentError;
        problem.reason = "Documents are not read over the network.\n";
        return nullptr;
    }
    NativePath native;
    if (!native.Translate(path.c_str(), Look::Existing))
    {
        FailToOpen(GetLastError(), problem);
        return nullptr;
    }
    std::string bytes;
    return ReadNativeFile(native.CStr(), bytes, problem) ? Load(bytes, native.CStr(), options, problem) : nullptr;
}

} // namespace kv::platform
