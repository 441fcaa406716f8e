#include <support/SystemCalls.h>

#include <atomic>

#include <support/ReplacedCalls.h>

namespace kv::test
{

namespace
{

std::atomic<SystemCalls *> current{nullptr};

} // namespace

SystemCalls::SystemCalls()
{
    static bool const installed = (InstallReplacedCalls(), true);
    static_cast<void>(installed);
    current = this;
}

SystemCalls::~SystemCalls()
{
    current = nullptr;
}

SystemCalls * SystemCalls::Current()
{
    return current;
}

} // namespace kv::test
