#pragma once

#include <kvcore/platform/win32.h>

namespace kv::tools
{

/// COM on the calling thread, which the platform's components need, while the object lives. A thread that has it keeps
/// what it has.
class ComUse
{
public:
    ComUse() : initialised(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ComUse(ComUse const &) = delete;
    ComUse & operator=(ComUse const &) = delete;
    ~ComUse()
    {
        if (initialised)
        {
            CoUninitialize();
        }
    }

private:
    bool const initialised;
};

} // namespace kv::tools
