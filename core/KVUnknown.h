#pragma once

#include <atomic>

#include <kvcore/platform/export.h>
#include <kvcore/platform/unknown.h>

/// Empty base of the library's reference-counted objects.
///
/// There is no list of live objects: neither construction nor destruction records anything. Any thread.
class KVCORE_API RegisteredObject
{
public:
    RegisteredObject();
    RegisteredObject(RegisteredObject const &);
    RegisteredObject & operator=(RegisteredObject const &);
    virtual ~RegisteredObject();

    /// Kept for callers built against it: does nothing, whatever objects are alive.
    static void LogActiveObjects();
};

/// Base of reference-counted objects: the IUnknown contract with an atomic count.
///
/// An object is born with a count of 1, which belongs to its creator: the creator does not call AddRef for that
/// reference and ends it with Release. IUnknown is a virtual base, so that a class which implements several interfaces
/// has one IUnknown and one count. There is no aggregation: every operation acts on the object itself.
///
/// Threads: AddRef and Release may be called from any thread. The last Release runs the destructor on the thread that
/// made it.
class KVCORE_API KVUnknown : public RegisteredObject, public virtual IUnknown
{
public:
    /// The count is 1.
    KVUnknown();
    /// The count is 1: a copy is a new object, whose creator holds its one reference.
    KVUnknown(KVUnknown const & other);
    /// Does nothing: who refers to an object does not change with its value.
    KVUnknown & operator=(KVUnknown const & other);
    ~KVUnknown() override;

    /// The result of KVQueryInterface(iid, object).
    HRESULT STDMETHODCALLTYPE QueryInterface(GUID const & iid, void ** object) override;
    /// Adds a reference and returns the new count.
    ULONG STDMETHODCALLTYPE AddRef() override;
    /// Drops a reference and returns the new count; at 0 the object is deleted.
    ULONG STDMETHODCALLTYPE Release() override;

protected:
    /// Stores at `object` the interface `iid` with a reference added and returns S_OK, or stores null and returns
    /// E_NOINTERFACE. This one knows IID_IUnknown. A derived class answers for its own interfaces and passes the rest
    /// to its base.
    virtual HRESULT KVQueryInterface(GUID const & iid, void ** object);

private:
    std::atomic<LONG> refCount;
};
