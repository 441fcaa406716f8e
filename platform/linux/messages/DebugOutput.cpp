#include <atomic>

#include <kvcore/platform/include/debugapi.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

namespace kv::platform
{

namespace
{

std::atomic<DebugReceiver> currentReceiver{nullptr};

} // namespace

DebugReceiver SetDebugReceiver(DebugReceiver receiver) noexcept
{
    return currentReceiver.exchange(receiver);
}

} // namespace kv::platform

void WINAPI OutputDebugStringW(LPCWSTR text)
{
    CheckText(text);
    if (auto const receiver = kv::platform::currentReceiver.load())
    {
        receiver(text != nullptr ? text : u"");
    }
}
