#include <kvcore/tools/support/Host.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#include <sys/stat.h>

namespace kv::tools::host
{

std::vector<std::string> Arguments(int, char **)
{
    // The narrow arguments have passed through the ANSI code page; the command line itself has every character.
    std::vector<std::string> arguments;
    int count = 0;
    LPWSTR * const values = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    for (int i = 1; values != nullptr && i < count; ++i)
    {
        arguments.push_back(String(values[i]).Utf8());
    }
    ::LocalFree(values);
    return arguments;
}

void PrepareStandardStreams()
{
    for (int descriptor = 0; descriptor <= 2; ++descriptor)
    {
        ::_setmode(descriptor, _O_BINARY);
    }
    ::SetConsoleOutputCP(CP_UTF8);
    ::SetConsoleCP(CP_UTF8);
}

int OpenForReading(std::string const & path)
{
    return ::_wopen(String::FromUtf8(path).c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
}

int OpenForWriting(std::string const & path)
{
    return ::_wopen(
        String::FromUtf8(path).c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT,
        _S_IREAD | _S_IWRITE);
}

std::ptrdiff_t Read(int descriptor, char * data, std::size_t size)
{
    return ::_read(descriptor, data, static_cast<unsigned>(size < INT_MAX ? size : INT_MAX));
}

namespace
{

// What a write to a pipe ends in that nobody reads any more, depending on how far the pipe has come in closing.
bool IsClosedPipe(DWORD error)
{
    return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
}

} // namespace

std::ptrdiff_t Write(int descriptor, char const * data, std::size_t size)
{
    int const written = ::_write(descriptor, data, static_cast<unsigned>(size < INT_MAX ? size : INT_MAX));
    // The C runtime knows one of these errors and calls the others "invalid argument".
    if (written < 0 && IsClosedPipe(::GetLastError()))
    {
        errno = EPIPE;
    }
    return written;
}

int Close(int descriptor)
{
    return ::_close(descriptor);
}

namespace
{

// The volume and the number of a file on it; false for what is no file on a disk.
bool Identify(std::string const & path, BY_HANDLE_FILE_INFORMATION & information)
{
    HANDLE const file = ::CreateFileW(
        String::FromUtf8(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    bool const known =
        ::GetFileType(file) == FILE_TYPE_DISK && ::GetFileInformationByHandle(file, &information) != FALSE;
    ::CloseHandle(file);
    return known;
}

} // namespace

bool IsSameFile(std::string const & first, std::string const & second)
{
    BY_HANDLE_FILE_INFORMATION a = {};
    BY_HANDLE_FILE_INFORMATION b = {};
    return Identify(first, a) && Identify(second, b) && a.dwVolumeSerialNumber == b.dwVolumeSerialNumber &&
        a.nFileIndexHigh == b.nFileIndexHigh && a.nFileIndexLow == b.nFileIndexLow;
}

} // namespace kv::tools::host
