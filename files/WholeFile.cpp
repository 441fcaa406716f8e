// Compiled for the standard after C++20, whose strings can grow without being filled first (see
// library/CMakeLists.txt).

#include <kvcore/files/FileStreams.h>

#include <cstdint>
#include <exception>
#include <stdexcept>

#include <kvcore/platform/win32.h>

namespace
{

constexpr DWORD step = 0x100000;

// Room for what the file says is left, so that `data` grows once. It is a guess: the file may change meanwhile, or be
// no file on a disk at all.
void ReserveRest(HANDLE file, std::string & data)
{
    LARGE_INTEGER size;
    LARGE_INTEGER position;
    if (!GetFileSizeEx(file, &size) || !SetFilePointerEx(file, LARGE_INTEGER{}, &position, FILE_CURRENT) ||
        size.QuadPart <= position.QuadPart)
    {
        return;
    }
    try
    {
        // And for the step that finds the end.
        std::uint64_t const room = data.size() + static_cast<std::uint64_t>(size.QuadPart - position.QuadPart) + step;
        if (room <= data.max_size()) // files are larger than an address space of 32 bits
        {
            data.reserve(static_cast<std::size_t>(room));
        }
    }
    catch (std::length_error const &)
    {
    }
    catch (std::bad_alloc const &)
    {
    }
}

} // namespace

// Each step is read to where it will stay: a step of its own memory would have to be copied, and memory that is filled
// before the read costs as much.
unsigned __int64 BasicFileStream::Read(std::string & data)
{
    data.clear();
    DWORD read = 0;
    do
    {
        std::size_t const before = data.size();
        std::exception_ptr failure; // a string must not be left by an exception while it grows
        auto const readStep = [&](char * bytes, std::size_t) -> std::size_t
        {
            try
            {
                read = Read(static_cast<void *>(bytes + before), step);
                return before + read;
            }
            catch (...)
            {
                failure = std::current_exception();
                return before;
            }
        };
        if (before == step)
        {
            ReserveRest(handle, data);
        }
        data.resize_and_overwrite(before + step, readStep);
        if (failure)
        {
            std::rethrow_exception(failure);
        }
    } while (read == step);
    return data.size();
}
