#include <kvcore/platform/WriteBehind.h>

namespace kv::platform
{

// The system copies the bytes of a write into its cache when it is issued.

WritesBehind::~WritesBehind() = default;

void WritesBehind::Attach(HANDLE) noexcept {}

void WritesBehind::Detach() noexcept {}

bool WritesBehind::Write(void const *, DWORD, std::uint64_t) noexcept
{
    return false;
}

void WritesBehind::Await() const noexcept {}

WriteGroup::WriteGroup() noexcept = default;

WriteGroup::~WriteGroup() = default;

} // namespace kv::platform
