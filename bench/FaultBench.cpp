// What it costs to opt in to exceptions for hardware faults, and how long one takes. Nothing else offers the same.

#include <cstring>

#include <kvcore/frame/SEHException.h>

#include "Jobs.h"

namespace
{

[[gnu::noinline]] void Fault()
{
    int volatile * volatile nowhere = nullptr;
    *nowhere = 1;
}

[[gnu::noinline]] bool FaultIsCaught()
{
    try
    {
        Fault();
    }
    catch (SEHException const & exception)
    {
        return exception.GetCode() == 0xC0000005;
    }
    return false;
}

void AddFaultJobs()
{
    SEHTryCatchEnabler const scope(TEXT("bench"));
    bench::Require(FaultIsCaught(), "SEHScope");
    bench::Add("SEHScope/enter-and-leave/ours", 1, [] { SEHTryCatchEnabler const inner(TEXT("bench")); });
    bench::Add(
        "SEHScope/fault-to-catch/ours", 1,
        []
        {
            SEHTryCatchEnabler const inner(TEXT("bench"));
            FaultIsCaught();
        });
}

bench::Source const source(AddFaultJobs);

} // namespace
