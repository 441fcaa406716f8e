#include "ReportFiles.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include <kvcore/platform/CrashReports.h>
#include <kvcore/platform/Faults.h>
#include <kvcore/platform/win32.h>

#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/Drives.h>
#include <kvcore/platform/linux/paths/NativePath.h>

namespace kv::platform
{

namespace
{

struct Place
{
    std::atomic<bool> taken;
    char path[1024];
};

// Not on the heap, which may be what is damaged.
constinit Place places[mostReportFiles] = {};
constinit std::mutex changes;

constexpr HRESULT Failure(DWORD error)
{
    return static_cast<HRESULT>(error | 0x80070000u);
}

Place * Find(char const * path)
{
    for (Place & place : places)
    {
        if (place.taken && std::strcmp(place.path, path) == 0)
        {
            return &place;
        }
    }
    return nullptr;
}

Place * FindFree()
{
    for (Place & place : places)
    {
        if (!place.taken)
        {
            return &place;
        }
    }
    return nullptr;
}

} // namespace

namespace
{

constinit thread_local WCHAR const * faultName [[gnu::tls_model("initial-exec")]] = nullptr;

} // namespace

void SetFaultName(WCHAR const * name) noexcept
{
    faultName = name;
}

WCHAR const * FaultName() noexcept
{
    return faultName;
}

char const * RegisteredReportFile(std::size_t index) noexcept
{
    return places[index].taken.load(std::memory_order_acquire) ? places[index].path : nullptr;
}

std::string CrashReportFolder()
{
    char directory[PATH_MAX];
    std::size_t length = 0;
    if (!DataDirectory(directory, length))
    {
        return {};
    }
    return std::string(directory, length) + "/crashes";
}

} // namespace kv::platform

using namespace kv::platform;

HRESULT WINAPI WerRegisterFile(LPCWSTR path, WER_REGISTER_FILE_TYPE, DWORD)
{
    CheckText(path);
    if (path == nullptr)
    {
        return Failure(ERROR_INVALID_PARAMETER);
    }
    NativePath native;
    if (!native.Translate(path, Look::Creating))
    {
        return Failure(GetLastError());
    }
    std::size_t const size = std::strlen(native.CStr()) + 1;
    std::lock_guard const lock(changes);
    if (Find(native.CStr()) != nullptr)
    {
        return 0;
    }
    Place * const place = FindFree();
    if (place == nullptr || size > sizeof place->path)
    {
        return Failure(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(place->path, native.CStr(), size);
    place->taken.store(true, std::memory_order_release);
    return 0;
}

HRESULT WINAPI WerUnregisterFile(LPCWSTR path)
{
    CheckText(path);
    if (path == nullptr)
    {
        return Failure(ERROR_INVALID_PARAMETER);
    }
    NativePath native;
    if (!native.Translate(path, Look::Creating))
    {
        return Failure(GetLastError());
    }
    std::lock_guard const lock(changes);
    Place * const place = Find(native.CStr());
    if (place == nullptr)
    {
        return Failure(ERROR_NOT_FOUND);
    }
    place->taken.store(false, std::memory_order_release);
    return 0;
}
