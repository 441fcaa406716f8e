#pragma once

// The process's handles. A handle is a small multiple of 4 and names a kernel object; several handles may name one.
//
//     auto const file = LookUp<File>(handle);   // last error is ERROR_INVALID_HANDLE if it is no handle of a file
//     if (!file) return FALSE;
//     file->...                                 // lives at least as long as `file` does
//
// A look-up costs two atomic additions and no lock, so that it disappears beside the system call it is made for.

#include <atomic>
#include <utility>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

class Waitable;

enum class ObjectKind
{
    File,
    Mapping,
    Event,
    Mutex,
    Semaphore,
    Thread,
    Process,
    Find,
    RegistryKey,
    ModuleList,
};

/// What a handle names. Counted: created with one reference, deleted with the last.
///
/// A derived class that is looked up by handle has `static constexpr ObjectKind kind`, and hands it to this
/// constructor.
class KernelObject
{
public:
    explicit KernelObject(ObjectKind kindOfObject) noexcept : objectKind(kindOfObject) {}
    KernelObject(KernelObject const &) = delete;
    KernelObject & operator=(KernelObject const &) = delete;

    void AddRef() noexcept
    {
        references.fetch_add(1, std::memory_order_relaxed);
    }
    void Release() noexcept
    {
        if (references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        {
            delete this;
        }
    }
    /// Whether anybody but the caller holds a reference.
    bool IsShared() const noexcept
    {
        return references.load(std::memory_order_acquire) > 1;
    }
    ObjectKind Kind() const noexcept
    {
        return objectKind;
    }

    /// The object as what the wait functions accept, or null.
    virtual Waitable * AsWaitable() noexcept
    {
        return nullptr;
    }
    /// Called once, when the last handle is closed and no look-up holds it any more. Others may still hold references:
    /// requests on their way, views of a mapping.
    virtual void LastHandleClosed() noexcept {}

protected:
    virtual ~KernelObject() = default;

private:
    friend class HandleTable;
    std::atomic<unsigned> references{1};
    std::atomic<unsigned> handles{0};
    ObjectKind const objectKind;
};

/// One registration of a waiting thread; defined by the wait functions.
struct WaitNode;

/// An object that threads can wait for. All of this is guarded by the wait functions' own lock.
class Waitable : public KernelObject
{
public:
    using KernelObject::KernelObject;

    Waitable * AsWaitable() noexcept override
    {
        return this;
    }
    /// Whether a wait of the calling thread would end now.
    virtual bool IsSignalled() const noexcept = 0;
    /// Ends one wait: an event that resets itself does so here.
    virtual void TakeSignal() noexcept {}

    WaitNode * firstWaiter = nullptr;
};

/// A counted pointer to a kernel object, for what outlives the call that looked it up.
template <class T>
class Ref
{
public:
    Ref() noexcept = default;
    /// Takes over the reference that the caller has: `Ref<File>::Adopt(new File(...))`.
    static Ref Adopt(T * owned) noexcept
    {
        Ref result;
        result.object = owned;
        return result;
    }
    /// Adds a reference of its own.
    explicit Ref(T * shared) noexcept : object(shared)
    {
        if (object != nullptr)
        {
            object->AddRef();
        }
    }
    Ref(Ref const & other) noexcept : Ref(other.object) {}
    Ref(Ref && other) noexcept : object(std::exchange(other.object, nullptr)) {}
    Ref & operator=(Ref other) noexcept
    {
        std::swap(object, other.object);
        return *this;
    }
    ~Ref()
    {
        if (object != nullptr)
        {
            object->Release();
        }
    }
    T * operator->() const noexcept
    {
        return object;
    }
    T & operator*() const noexcept
    {
        return *object;
    }
    T * Get() const noexcept
    {
        return object;
    }
    explicit operator bool() const noexcept
    {
        return object != nullptr;
    }

private:
    T * object = nullptr;
};

/// One place of the table. `state` holds the object's address (48 bits), a bit for "closed, but still looked up", and
/// above it the number of look-ups that stand.
struct HandleSlot
{
    std::atomic<std::uint64_t> state{0};
    DWORD access = 0;
    std::uint32_t index = 0;
    std::uint32_t nextFree = 0;
};

class HandleTable
{
public:
    /// A new handle of `object`, which takes a reference of its own. `access` is what this handle allows: see
    /// Pinned::Access. Null with ERROR_NOT_ENOUGH_MEMORY or ERROR_NO_SYSTEM_RESOURCES.
    static HANDLE Create(KernelObject & object, DWORD access) noexcept;

    /// FALSE with ERROR_INVALID_HANDLE if it is none. Look-ups that stand keep the object until they end.
    static BOOL Close(HANDLE handle) noexcept;

    /// Holds the slot of a handle; null if it is none. Last error stays as it is.
    static HandleSlot * Pin(HANDLE handle) noexcept;
    static void Unpin(HandleSlot * slot) noexcept;
    static KernelObject * ObjectOf(HandleSlot const * slot) noexcept;
};

/// A look-up that stands: the object, and what the handle allows to do with it.
template <class T>
class Pinned
{
public:
    Pinned() noexcept = default;
    Pinned(HandleSlot * pinnedSlot, T * pinnedObject) noexcept : slot(pinnedSlot), object(pinnedObject) {}
    Pinned(Pinned && other) noexcept
        : slot(std::exchange(other.slot, nullptr)), object(std::exchange(other.object, nullptr))
    {
    }
    Pinned & operator=(Pinned && other) noexcept
    {
        std::swap(slot, other.slot);
        std::swap(object, other.object);
        return *this;
    }
    ~Pinned()
    {
        if (slot != nullptr)
        {
            HandleTable::Unpin(slot);
        }
    }
    T * operator->() const noexcept
    {
        return object;
    }
    T & operator*() const noexcept
    {
        return *object;
    }
    T * Get() const noexcept
    {
        return object;
    }
    explicit operator bool() const noexcept
    {
        return object != nullptr;
    }
    /// The access that was granted with this handle; generic rights are resolved to the specific ones.
    DWORD Access() const noexcept
    {
        return slot->access;
    }

private:
    HandleSlot * slot = nullptr;
    T * object = nullptr;
};

/// Sets ERROR_INVALID_HANDLE. Out of line, to keep the look-ups small.
void FailInvalidHandle() noexcept;

/// The object of class T that `handle` names, or null with ERROR_INVALID_HANDLE.
template <class T>
Pinned<T> LookUp(HANDLE handle) noexcept
{
    if (HandleSlot * const slot = HandleTable::Pin(handle))
    {
        KernelObject * const object = HandleTable::ObjectOf(slot);
        if (object->Kind() == T::kind)
        {
            return Pinned<T>(slot, static_cast<T *>(object));
        }
        HandleTable::Unpin(slot);
    }
    FailInvalidHandle();
    return {};
}

/// The object that a wait can be made for, or null with ERROR_INVALID_HANDLE.
Pinned<Waitable> LookUpWaitable(HANDLE handle) noexcept;

/// Any object, or null with ERROR_INVALID_HANDLE.
Pinned<KernelObject> LookUpObject(HANDLE handle) noexcept;

} // namespace kv::platform
