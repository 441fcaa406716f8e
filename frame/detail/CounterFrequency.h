#pragma once

#include <kvcore/platform/types.h>

namespace kv::detail
{

/// The performance counter's steps in a second, asked of the system once.
class CounterFrequency
{
public:
    CounterFrequency();
    LONGLONG Value() const
    {
        return value;
    }

private:
    LONGLONG value;
};

extern CounterFrequency const counterFrequency;

} // namespace kv::detail
