#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace
{

using Keys = std::vector<ACCEL>;

/// The tables that are loaded, by their handle: one that names no table ends in an error.
struct Tables
{
    std::mutex mutex;
    std::unordered_map<HACCEL, Keys> byHandle;
    ULONG_PTR last = 0;
};

Tables & TheTables()
{
    static Tables & tables = *new Tables;
    return tables;
}

/// A resource is a run of 8 bytes for each key, of which the last one is marked.
Keys ReadKeys(unsigned char const * data, DWORD size)
{
    constexpr DWORD entrySize = 8;
    constexpr WORD lastEntry = 0x80;
    Keys keys;
    for (DWORD at = 0; size - at >= entrySize; at += entrySize)
    {
        WORD fields[3];
        std::memcpy(fields, data + at, sizeof(fields));
        keys.push_back({static_cast<BYTE>(fields[0] & ~lastEntry), fields[1], fields[2]});
        if ((fields[0] & lastEntry) != 0)
        {
            break;
        }
    }
    return keys;
}

} // namespace

HACCEL WINAPI LoadAcceleratorsW(HINSTANCE module, LPCWSTR name)
try
{
    CheckName(name);
    HRSRC const resource = FindResourceW(module, name, RT_ACCELERATOR);
    if (resource == nullptr)
    {
        return nullptr;
    }
    Keys keys = ReadKeys(
        static_cast<unsigned char const *>(LockResource(LoadResource(module, resource))),
        SizeofResource(module, resource));
    if (keys.empty())
    {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return nullptr;
    }
    Tables & tables = TheTables();
    std::lock_guard const guard(tables.mutex);
    HACCEL const handle = reinterpret_cast<HACCEL>(tables.last + 16);
    tables.byHandle.emplace(handle, std::move(keys));
    tables.last += 16;
    return handle;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

BOOL WINAPI DestroyAcceleratorTable(HACCEL table)
{
    Tables & tables = TheTables();
    std::lock_guard const guard(tables.mutex);
    return tables.byHandle.erase(table) != 0 ? TRUE : FailWith(ERROR_INVALID_HANDLE);
}

int WINAPI CopyAcceleratorTableW(HACCEL table, ACCEL * keys, int count)
{
    CheckBuffer(keys, count > 0 ? 1 : 0);
    Tables & tables = TheTables();
    std::lock_guard const guard(tables.mutex);
    auto const found = tables.byHandle.find(table);
    if (found == tables.byHandle.end())
    {
        return FailWith(ERROR_INVALID_HANDLE);
    }
    int const there = static_cast<int>(found->second.size());
    if (keys == nullptr)
    {
        return there;
    }
    int const copied = std::clamp(count, 0, there);
    std::copy_n(found->second.begin(), copied, keys);
    return copied;
}
