#include "CallerMemory.h"

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

} // namespace kv::platform
