#pragma once

// Access to memory that a caller names.
//
// A pointer from outside may be bad. The hardware fault then leaves a call as an exception does, and the call's
// destructors free its locks. The C library's functions promise the compiler that they never throw, so a function with
// destructors of its own must not call them on such memory: it would end the process. These may fault.

#include <cstddef>
#include <string_view>
#include <type_traits>

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

// The checks below find a bad pointer at the entry of a call, before the call holds a lock, a handle or memory of its
// own: the call might as well not have been made. Behind them its helpers may be `noexcept`, and libraries that expect
// no exceptions may read the memory. Null is never looked at: it means what the call says.

/// Reads or writes a byte of each page, which stays as it is. They are compiled apart from those that call them, since
/// a compiler that saw them would expect no exception.
void TouchToRead(void const * memory, std::size_t size);
void TouchToWrite(void * memory, std::size_t size);

/// A text up to its NUL.
void CheckText(WCHAR const * text);
void CheckText(char const * text);

/// Texts behind each other, of which the last is empty.
void CheckLines(WCHAR const * lines);

template <typename... More>
void CheckTexts(More const *... texts)
{
    (CheckText(texts), ...);
}

/// A text of a length; a negative one goes to its NUL.
template <typename Unit>
void CheckText(Unit const * text, int length)
{
    if (length < 0)
    {
        CheckText(text);
    }
    else if (text != nullptr)
    {
        TouchToRead(text, static_cast<std::size_t>(length) * sizeof(Unit));
    }
}

/// A text, or a number in its place.
inline void CheckName(WCHAR const * name)
{
    constexpr std::size_t numbers = 0x10000;
    CheckText(reinterpret_cast<std::size_t>(name) < numbers ? nullptr : name);
}

/// Values that the call reads.
template <typename... Values>
void CheckInputs(Values const *... values)
{
    (((values != nullptr) ? TouchToRead(values, sizeof(Values)) : void()), ...);
}

/// So many values that the call reads.
template <typename Value>
void CheckArray(Value const * values, std::size_t count)
{
    if (values != nullptr)
    {
        TouchToRead(values, count * sizeof(Value));
    }
}

/// Values that the call writes.
template <typename... Values>
void CheckOutputs(Values *... values)
{
    (((values != nullptr) ? TouchToWrite(values, sizeof(Values)) : void()), ...);
}

/// The beginning of a buffer: callers state more room than they have, and no more than what is written has to be there.
template <typename Unit>
void CheckBuffer(Unit * buffer, std::size_t capacity)
{
    using Byte = std::conditional_t<std::is_void_v<Unit>, char, Unit>;
    if (buffer != nullptr && capacity != 0)
    {
        TouchToWrite(buffer, sizeof(Byte));
    }
}

} // namespace kv::platform
