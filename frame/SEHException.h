#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/Faults.h>
#include <kvcore/platform/export.h>

/// A hardware fault as a C++ exception: thrown by value at the faulting instruction, in a thread that has opted in with
/// SEHTryCatchEnabler or SEHCall. A plain value.
class KVCORE_API SEHException
{
public:
    /// `code` is the system's code of the exception, `location` the address of the instruction.
    SEHException(ULONG code, void * location);

    ULONG GetCode() const;
    /// The code in words ("Access violation"); "Unknown" for what is no hardware fault.
    String GetCodeAsString() const;
    void * GetModuleLocation() const;
    /// The path of the module that contains the location; of the main executable if none does.
    String GetModuleFileNameW() const;
    /// All of it in one sentence. The location has eight hexadecimal digits, and more only if it needs them.
    String GetMsg() const;

private:
    ULONG exceptionCode;
    void * exceptionLocation;
};

/// Work in which hardware faults are exceptions.
class KVCORE_API SEHCall
{
public:
    /// The work. First in the table of virtual functions, and alone there.
    virtual void Execute() = 0;

    /// Calls Execute with faults translated, on the calling thread. What leaves Execute leaves this; the translator
    /// before is in force again in any case. The thread's name stays as it is.
    void DoCall();

protected:
    SEHCall() = default;
    SEHCall(SEHCall const &) = default;
    SEHCall & operator=(SEHCall const &) = default;
    ~SEHCall() = default;
};

/// A scope in which the thread's hardware faults are exceptions of type SEHException. Scopes nest; each ends on the
/// thread that it began on. Code outside of any has the platform's default: a fault ends the process.
///
/// A fault is reported before any `catch` has had a say, if there is an application object, and also if a handler then
/// takes it for harmless. That includes break points. What makes a fault catchable for the compiler stands in
/// <kvcore/platform/Faults.h>; the installed package sets the options.
class KVCORE_API SEHTryCatchEnabler
{
public:
    /// `name` is the thread's name in crash reports, of at most 255 characters; a longer one, and none, leave the name
    /// empty. Kept: the name outlives the scope, also an inner one, since the translator alone is restored.
    SEHTryCatchEnabler(WCHAR const * name);
    /// Installs the translator that was there before.
    ~SEHTryCatchEnabler();

    /// Kept: a copy restores the same translator as the original, at its own end.
    SEHTryCatchEnabler(SEHTryCatchEnabler const &) = default;
    SEHTryCatchEnabler & operator=(SEHTryCatchEnabler const &) = default;

private:
    kv::platform::FaultTranslator previousTranslator;
};
