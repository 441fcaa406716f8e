#include <support/PlatformFaults.h>

#include <kvcore/platform/win32.h>

namespace kv::test
{

namespace
{

std::atomic<PlatformFaults *> current{nullptr};

} // namespace

PlatformFaults::PlatformFaults(int failing, DWORD error) : failingCall(failing), failure(error)
{
    static bool const installed = (InstallPlatformFaults(), true);
    static_cast<void>(installed);
    current = this;
}

PlatformFaults::~PlatformFaults()
{
    current = nullptr;
}

bool PlatformFaults::HasFailed() const
{
    return failed;
}

int PlatformFaults::Count(std::string const & name) const
{
    std::lock_guard const guard(namesMutex);
    auto const found = names.find(name);
    return found == names.end() ? 0 : found->second;
}

int PlatformFaults::OpenHandles() const
{
    return open;
}

bool PlatformFaults::Fails(char const * name)
{
    PlatformFaults * const faults = current;
    if (faults == nullptr)
    {
        return false;
    }
    {
        std::lock_guard const guard(faults->namesMutex);
        ++faults->names[name];
    }
    if (++faults->calls != faults->failingCall)
    {
        return false;
    }
    faults->failed = true;
    SetLastError(faults->failure);
    return true;
}

void PlatformFaults::Opened()
{
    if (PlatformFaults * const faults = current)
    {
        ++faults->open;
    }
}

void PlatformFaults::Closed()
{
    if (PlatformFaults * const faults = current)
    {
        --faults->open;
    }
}

} // namespace kv::test
