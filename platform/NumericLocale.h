#pragma once

// What the C run-time libraries of the targets do each in their own way: numbers free of the process's locale.

#include <kvcore/platform/export.h>

namespace kv::platform
{

/// While it lives, the C library's number conversions on this thread use the "C" locale's decimal point, whatever the
/// process has set. No other thread sees a change, and the destructor puts back what was there. Not to be handed to
/// another thread. Guards may nest.
class KVCORE_API NumericLocaleGuard
{
public:
    NumericLocaleGuard();
    ~NumericLocaleGuard();
    NumericLocaleGuard(NumericLocaleGuard const &) = delete;
    NumericLocaleGuard & operator=(NumericLocaleGuard const &) = delete;

private:
    void * saved;
    [[maybe_unused]] int savedMode; // where the C library switches per thread by a mode
};

} // namespace kv::platform
