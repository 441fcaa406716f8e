#include <cerrno>
#include <climits>

#include <kvcore/platform/include/crt.h>
#include <kvcore/platform/linux/crt/PrintfEngine.h>

int _vsnwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments)
{
    if (format == nullptr)
    {
        errno = EINVAL;
        return -1;
    }
    std::uint64_t const count = kv::platform::PrintWide(buffer, capacity, format, arguments);
    if (count > INT_MAX || (buffer != nullptr && count > capacity))
    {
        return -1;
    }
    if (count < capacity && buffer != nullptr)
    {
        buffer[count] = 0;
    }
    return static_cast<int>(count);
}

int _snwprintf(WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    int const count = _vsnwprintf(buffer, capacity, format, arguments);
    va_end(arguments);
    return count;
}
