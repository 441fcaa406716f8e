#include <kvcore/platform/StringResources.h>

#include <cstring>

#include <kvcore/platform/win32.h>

namespace kv::platform
{

StringResource FindStringResource(HINSTANCE module, WORD block, unsigned index) noexcept
{
    HRSRC const found = FindResourceW(module, MAKEINTRESOURCEW(block), MAKEINTRESOURCEW(6)); // RT_STRING
    if (found == nullptr)
    {
        return {nullptr, 0};
    }
    auto const * const bytes = static_cast<char const *>(LockResource(LoadResource(module, found)));
    if (bytes == nullptr)
    {
        return {nullptr, 0};
    }
    // Counted strings, one behind the other. What points behind the block is not there.
    DWORD const size = SizeofResource(module, found);
    std::size_t at = 0;
    for (unsigned skipped = index;; --skipped)
    {
        WCHAR length = 0;
        if (size - at < sizeof length)
        {
            return {bytes, 0};
        }
        std::memcpy(&length, bytes + at, sizeof length);
        at += sizeof length;
        if ((size - at) / sizeof(WCHAR) < length)
        {
            return {bytes, 0};
        }
        if (skipped == 0)
        {
            return {bytes + at, length};
        }
        at += length * sizeof(WCHAR);
    }
}

} // namespace kv::platform
