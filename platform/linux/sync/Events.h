#pragma once

// Events, as the overlapped requests use them.

#include <kvcore/platform/linux/files/Handles.h>

namespace kv::platform
{

class Event final : public Waitable
{
public:
    static constexpr ObjectKind kind = ObjectKind::Event;
    static constexpr DWORD allAccess = 0x001F0003u;

    Event(bool manualReset, bool initiallySet) noexcept : Waitable(kind), isManual(manualReset), isSet(initiallySet) {}

    bool IsSignalled() const noexcept override
    {
        return isSet;
    }
    void TakeSignal() noexcept override
    {
        isSet = isSet && isManual;
    }
    void Set() noexcept;
    void Reset() noexcept;
    /// What a wait that ends at once does.
    void Take() noexcept;

private:
    ~Event() override = default;

    bool const isManual;
    bool isSet;
};

} // namespace kv::platform
