#include <kvcore/tools/kv/TestCrash.h>

#include <algorithm>
#include <exception>

#include <kvcore/frame/ApplicationBase.h>
#include <kvcore/frame/SEHException.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/ProvokeFault.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

ProvokedFault const & FindKind(std::string const & kind)
{
    ProvokedFault const * const end = provokedFaults + provokedFaultCount;
    ProvokedFault const * const found =
        std::find_if(provokedFaults, end, [&kind](ProvokedFault const & fault) { return fault.kind == kind; });
    if (found == end)
    {
        throw UsageError("no fault is called \"" + kind + "\"; kv crash --kinds lists them");
    }
    return *found;
}

// In a function of its own: the compiler expects no exception from some of the faults.
[[gnu::noinline]] void Provoke(ProvokedFault const & fault)
{
    fault.provoke();
}

} // namespace

int TestCrash(std::string const & kind, bool uncaught, Console & console)
{
    ProvokedFault const & fault = FindKind(kind);
    if (uncaught)
    {
        Provoke(fault);
        Complain(console, "kv crash", "there was no fault");
        return ExitFailed;
    }
    ApplicationBase const application; // has the crash reporter
    NamedOutput output("-", console);
    try
    {
        SEHTryCatchEnabler const faultsAreExceptions(TEXT("kv crash --test"));
        Provoke(fault);
    }
    catch (SEHException const & caught)
    {
        PrintLine(output, "Caught: " + caught.GetMsg().Utf8());
        output.Finish();
        return ExitOk;
    }
    catch (std::exception const & failure)
    {
        Complain(console, "kv crash", failure.what());
        return ExitFailed;
    }
    Complain(console, "kv crash", "there was no fault");
    return ExitFailed;
}

int ListCrashKinds(Console & console)
{
    NamedOutput output("-", console);
    for (std::size_t i = 0; i < provokedFaultCount; ++i)
    {
        std::string const kind(provokedFaults[i].kind);
        PrintLine(output, kind + std::string(12 - kind.size(), ' ') + std::string(provokedFaults[i].description));
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
