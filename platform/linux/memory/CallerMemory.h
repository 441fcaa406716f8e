#pragma once

// Access to memory that a caller names.
//
// A pointer from outside may be bad. The hardware fault then leaves a call as an exception does, and the call's
// destructors free its locks. The C library's functions promise the compiler that they never throw, so a function with
// destructors of its own must not call them on such memory: it would end the process. These may fault.

#include <cstddef>
#include <string_view>

#include <kvcore/platform/types.h>

namespace kv::platform
{

/// A caller's text, read up to its NUL. Null is empty.
std::u16string_view CallersText(LPCWSTR text);

/// A caller's text in memory of the call's own, where it must not change or go while the call holds locks.
class CallersName
{
public:
    explicit CallersName(LPCWSTR name) : text(CallersText(name)), isThere(name != nullptr) {}
    WString const & Text() const noexcept
    {
        return text;
    }
    /// Null for null.
    WString const * Place() const noexcept
    {
        return isThere ? &text : nullptr;
    }

private:
    WString const text;
    bool const isThere;
};

void CopyToCaller(void * target, void const * source, std::size_t size);
void CopyFromCaller(void * target, void const * source, std::size_t size);

} // namespace kv::platform
