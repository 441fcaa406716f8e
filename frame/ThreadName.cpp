#include <kvcore/frame/detail/ThreadName.h>

#include <new>

#include <kvcore/platform/win32.h>

namespace kv::detail
{

namespace
{

constexpr DWORD noSlot = 0xFFFFFFFF;

DWORD slot = noSlot;

void DropBuffer() noexcept
{
    if (slot != noSlot)
    {
        delete[] static_cast<WCHAR *>(TlsGetValue(slot));
        TlsSetValue(slot, nullptr);
    }
}

/// Takes the buffer away at the end of its thread.
struct ThreadEnd
{
    ~ThreadEnd()
    {
        DropBuffer();
    }
    bool watched = false;
};

thread_local ThreadEnd threadEnd;

} // namespace

// Made when it is first asked for: most threads never are.
WCHAR * ThreadNameBuffer() noexcept
{
    if (slot == noSlot)
    {
        return nullptr;
    }
    if (void * const buffer = TlsGetValue(slot))
    {
        return static_cast<WCHAR *>(buffer);
    }
    WCHAR * const made = new (std::nothrow) WCHAR[threadNameSize]();
    TlsSetValue(slot, made);
    threadEnd.watched = true; // the first use registers the destructor
    return made;
}

void AttachThreadNames()
{
    slot = TlsAlloc();
    ThreadNameBuffer();
}

void DetachThreadNames() noexcept
{
    DropBuffer();
    if (slot != noSlot)
    {
        TlsFree(slot);
        slot = noSlot;
    }
}

} // namespace kv::detail
