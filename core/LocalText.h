#pragma once

#include <kvcore/platform/win32.h>

namespace kv::detail
{

/// Owns a text that a system call allocated for its caller, to be freed with LocalFree.
class LocalText
{
public:
    LocalText() = default;
    ~LocalText()
    {
        LocalFree(text);
    }
    LocalText(LocalText const &) = delete;
    LocalText & operator=(LocalText const &) = delete;

    /// What a call with FORMAT_MESSAGE_ALLOCATE_BUFFER takes as its buffer: the address of the pointer that it sets.
    WCHAR * Target()
    {
        return reinterpret_cast<WCHAR *>(&text);
    }
    WCHAR const * Get() const
    {
        return text;
    }

private:
    WCHAR * text = nullptr;
};

} // namespace kv::detail
