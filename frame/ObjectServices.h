#pragma once

#include <kvcore/platform/InterfaceId.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/unknown.h>

/// A broker for objects within the process: modules put classes and live services under a GUID, and others get them
/// there, without the registry. Base of ModuleBase, so that the code of every module has it at hand; all of it is
/// static.
///
/// Nothing is taken back at unload: a service that was not revoked keeps its reference for ever. A module revokes its
/// services and unregisters its classes before it goes. Keys are ordered by their bytes in memory.
///
/// Threads: any. Each table has a recursive lock of its own, which is held while objects are created, released and
/// asked for interfaces: they may call back into this class on the same thread, but must not wait for another one that
/// does.
class KVCORE_API ObjectServices
{
public:
    /// Makes an object with one reference, which belongs to the caller.
    using CreateFunction = IUnknown * (*)();

    /// Puts a class under `id`, in place of an earlier one. S_OK.
    static HRESULT RegisterClassW(GUID const & id, CreateFunction create);
    /// Takes it away. S_OK, also if there was none.
    static HRESULT UnregisterClassW(GUID const & id);

    /// Puts a service under `id`, with a reference of the table's own; an earlier one is released. S_OK. Kept: a null
    /// `object` takes an earlier service away, and leaves an entry without an object if there was none. Asking for that
    /// is fatal.
    static HRESULT RegisterService(GUID const & id, IUnknown * object);
    /// Releases `object` and takes the entry away. E_FAIL, and no release, if there is none. Kept: `object` is not
    /// compared with what is registered, and null does nothing and gives S_OK.
    static HRESULT RevokeService(GUID const & id, IUnknown * object);

    /// The service under `id`, by its interface: that object's answer, or E_FAIL and null if there is none. The
    /// interface's identifier comes from its type (see kv::platform::InterfaceId), unless it is given.
    template <class Interface>
    static HRESULT
    GetService(GUID const & id, Interface ** result, GUID const & iid = kv::platform::InterfaceId<Interface>())
    {
        return _GetService(id, iid, reinterpret_cast<void **>(result));
    }
    /// A new object of the class under `id`, by its interface: that object's answer, or E_FAIL and null if there is no
    /// such class.
    template <class Interface>
    static HRESULT
    CreateClassObject(GUID const & id, Interface ** result, GUID const & iid = kv::platform::InterfaceId<Interface>())
    {
        return _CreateClassObject(id, iid, reinterpret_cast<void **>(result));
    }

private:
    static HRESULT _GetService(GUID const & id, GUID const & iid, void ** result);
    static HRESULT _CreateClassObject(GUID const & id, GUID const & iid, void ** result);
};
