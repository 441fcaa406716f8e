#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Enters COM classes in the registry, so that CoCreateInstance finds the module that implements them.
///
/// A class has the key "Software\Classes\CLSID\{...}" under HKEY_LOCAL_MACHINE, whose default value describes it, and
/// below that "InprocServer32", whose default value is the module's path. Results are false on failure; nothing throws
/// but for lack of memory.
///
/// Threads: any.
class KVCORE_API RegistryHelper
{
public:
    /// How the threads of a program may use the objects of a class: the text of the value "ThreadingModel".
    enum ThreadingModel
    {
        NoThreadingModel = 0, ///< and any other number: no such value, so that the main thread alone uses them
        Apartment = 1,        ///< "Apartment"
        Both = 2,             ///< "Both"
        Free = 3,             ///< "Free"
        Neutral = 4,          ///< "Neutral"
    };

    /// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", in upper case.
    static String GetClassString(GUID const & id);

    /// Makes the class's key.
    static bool RegisterCLSID(GUID const & id);
    /// Deletes the class's key and all below it.
    static bool UnregisterCLSID(GUID const & id);

    /// Enters the module that implements the class. With a model that has no text, a value "ThreadingModel" from an
    /// earlier registration is removed.
    static bool RegisterInprocServer32(GUID const & id, String server, ThreadingModel model);
    /// Deletes what RegisterInprocServer32 entered.
    static bool UnregisterInprocServer32(GUID const & id);

    /// The class's description, and the path of its module; empty if there is none.
    static String GetClassDescription(GUID const & id);
    static String GetClassServer(GUID const & id);
};
