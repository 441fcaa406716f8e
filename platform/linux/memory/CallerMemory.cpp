#include "CallerMemory.h"

#include <cstdint>
#include <cstring>

namespace kv::platform
{

std::u16string_view CallersText(LPCWSTR text)
{
    return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

void CopyToCaller(void * target, void const * source, std::size_t size)
{
    if (size != 0)
    {
        std::memmove(target, source, size);
    }
}

void CopyFromCaller(void * target, void const * source, std::size_t size)
{
    if (size != 0)
    {
        std::memmove(target, source, size);
    }
}

namespace
{

constexpr std::size_t pageSize = 4096;

/// Calls `touch` for a byte of each page.
template <typename Byte, typename Touch>
void ForEachPage(Byte * memory, std::size_t size, Touch touch)
{
    for (std::size_t at = 0; at < size; at += pageSize - reinterpret_cast<std::uintptr_t>(memory + at) % pageSize)
    {
        touch(memory + at);
    }
}

} // namespace

void TouchToRead(void const * memory, std::size_t size)
{
    ForEachPage(static_cast<char const volatile *>(memory), size, [](char const volatile * byte) { (void)*byte; });
}

// Another thread may be writing there: what it writes stays.
void TouchToWrite(void * memory, std::size_t size)
{
    ForEachPage(
        static_cast<char *>(memory), size, [](char * byte) { __atomic_fetch_or(byte, char{0}, __ATOMIC_RELAXED); });
}

void CheckText(WCHAR const * text)
{
    if (text != nullptr)
    {
        WCHAR const volatile * at = text;
        while (*at != 0)
        {
            ++at;
        }
    }
}

void CheckLines(WCHAR const * lines)
{
    while (lines != nullptr && *static_cast<WCHAR const volatile *>(lines) != 0)
    {
        while (*static_cast<WCHAR const volatile *>(lines++) != 0)
        {
        }
    }
}

void CheckText(char const * text)
{
    if (text != nullptr)
    {
        char const volatile * at = text;
        while (*at != 0)
        {
            ++at;
        }
    }
}

} // namespace kv::platform
