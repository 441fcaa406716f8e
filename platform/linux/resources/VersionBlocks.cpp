#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string_view>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/include/winver.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/modules/Modules.h>
#include <kvcore/platform/linux/paths/NativeNames.h>

using namespace kv::platform;

namespace
{

using WView = std::basic_string_view<WCHAR>;

/// The block of a file with the file that holds it; nothing with the last error set.
struct VersionResource
{
    std::unique_ptr<ResourceFile> file;
    ResourceData const * data = nullptr;
};

VersionResource OpenVersion(LPCWSTR name)
{
    if (name == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return {};
    }
    VersionResource version{OpenResourceFile(name)};
    if (version.file == nullptr)
    {
        DWORD const error = GetLastError();
        SetLastError(
            error == ERROR_MOD_NOT_FOUND        ? ERROR_FILE_NOT_FOUND
                : error == ERROR_BAD_EXE_FORMAT ? ERROR_RESOURCE_DATA_NOT_FOUND
                                                : error);
        return {};
    }
    ResourceId const type{{}, static_cast<WORD>(reinterpret_cast<ULONG_PTR>(RT_VERSION))};
    ResourceId const number{{}, VS_VERSION_INFO};
    FoundResource const found = version.file->resources.Find(type, number, 0);
    if (found.data == nullptr)
    {
        SetLastError(found.error);
    }
    version.data = found.data;
    return version;
}

} // namespace

DWORD WINAPI GetFileVersionInfoSizeW(LPCWSTR file, LPDWORD zero)
try
{
    CheckText(file);
    CheckOutputs(zero);
    if (zero != nullptr)
    {
        *zero = 0;
    }
    VersionResource const version = OpenVersion(file);
    if (version.data == nullptr)
    {
        return 0;
    }
    if (version.data->size < 8)
    {
        return static_cast<DWORD>(FailWith(ERROR_RESOURCE_DATA_NOT_FOUND));
    }
    SetLastError(ERROR_SUCCESS);
    return version.data->size;
}
catch (std::bad_alloc const &)
{
    return static_cast<DWORD>(FailWith(ERROR_NOT_ENOUGH_MEMORY));
}

BOOL WINAPI GetFileVersionInfoW(LPCWSTR file, DWORD, DWORD size, LPVOID block)
try
{
    CheckText(file);
    CheckBuffer(block, size);
    if (block == nullptr)
    {
        return FailWith(ERROR_INVALID_DATA);
    }
    VersionResource const version = OpenVersion(file);
    if (version.data == nullptr)
    {
        return FALSE;
    }
    WORD const copied = static_cast<WORD>(std::min<DWORD>({size, version.data->size, 0xFFFF}));
    CopyToCaller(block, version.data->data, copied);
    // The block's own length is all that VerQueryValueW has to go by: it never says more than is there.
    WORD stated = 0;
    if (copied >= sizeof(stated))
    {
        std::memcpy(&stated, block, sizeof(stated));
        stated = std::min(stated, copied);
        std::memcpy(block, &stated, sizeof(stated));
    }
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

namespace
{

/// One block: its length, its value's, whether that is text, its name, the value, and further blocks inside. Each part
/// begins at a multiple of 4, counted from the beginning of the whole.
struct Block
{
    DWORD begin;
    DWORD end;
    DWORD value;
    WORD valueLength;
    bool isText;
    WView name;
};

constexpr DWORD Aligned(DWORD at) noexcept
{
    return (at + 3) & ~DWORD{3};
}

WORD WordAt(unsigned char const * whole, DWORD at) noexcept
{
    WORD word = 0;
    std::memcpy(&word, whole + at, sizeof(word));
    return word;
}

/// The block at a place, as far as it lies before `limit`; nothing if there is none.
std::optional<Block> ReadBlock(unsigned char const * whole, DWORD at, DWORD limit) noexcept
{
    constexpr DWORD headerSize = 6;
    if (at >= limit || limit - at < headerSize)
    {
        return std::nullopt;
    }
    WORD const length = WordAt(whole, at);
    if (length < headerSize || length > limit - at)
    {
        return std::nullopt;
    }
    Block block{at, at + length, 0, WordAt(whole, at + 2), WordAt(whole, at + 4) != 0, {}};
    DWORD end = at + headerSize;
    while (block.end - end >= sizeof(WCHAR) && WordAt(whole, end) != 0)
    {
        end += sizeof(WCHAR);
    }
    if (block.end - end < sizeof(WCHAR))
    {
        return std::nullopt;
    }
    block.name =
        WView(reinterpret_cast<WCHAR const *>(whole + at + headerSize), (end - at - headerSize) / sizeof(WCHAR));
    block.value = std::min(Aligned(end + sizeof(WCHAR)), block.end);
    return block;
}

/// Where the blocks inside begin.
DWORD Inside(Block const & block) noexcept
{
    DWORD const size = DWORD{block.valueLength} * (block.isText ? 2u : 1u);
    return std::min(Aligned(block.value + size), block.end);
}

std::optional<Block> FindInside(unsigned char const * whole, Block const & block, WView name) noexcept
{
    DWORD at = Inside(block);
    while (auto const inner = ReadBlock(whole, at, block.end))
    {
        if (CompareNames(inner->name.data(), inner->name.size(), name.data(), name.size()) == 0)
        {
            return inner;
        }
        at = Aligned(inner->end);
    }
    return std::nullopt;
}

} // namespace

BOOL WINAPI VerQueryValueW(LPCVOID block, LPCWSTR name, LPVOID * value, UINT * length)
{
    CheckText(name);
    CheckOutputs(value, length);
    if (block == nullptr || name == nullptr || value == nullptr)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    UINT unused = 0;
    UINT & found = length != nullptr ? *length : unused;
    auto const * const whole = static_cast<unsigned char const *>(block);
    std::optional<Block> current = ReadBlock(whole, 0, WordAt(whole, 0));
    for (WView rest = name; current && !rest.empty();)
    {
        std::size_t const separator = std::min(rest.find('\\'), rest.size());
        if (separator != 0)
        {
            current = FindInside(whole, *current, rest.substr(0, separator));
        }
        rest.remove_prefix(std::min(separator + 1, rest.size()));
    }
    if (!current)
    {
        found = 0;
        return FailWith(ERROR_RESOURCE_TYPE_NOT_FOUND);
    }
    // A value that says to be longer than its block ends with that.
    DWORD const there = (current->end - current->value) / (current->isText ? 2u : 1u);
    found = std::min<DWORD>(current->valueLength, there);
    *value = const_cast<unsigned char *>(whole) + current->value;
    return TRUE;
}
