// The test's own functions of the system's names come before those of the platform library: the dynamic linker takes
// the first it meets.

#include <dlfcn.h>

#define FAULTY_CALL(name) name
#define REAL_CALL(name) reinterpret_cast<decltype(&name)>(RealCall(#name))

namespace
{

void * RealCall(char const * name)
{
    return dlsym(RTLD_NEXT, name);
}

} // namespace

#include <support/PlatformFaultCalls.h>

namespace kv::test
{

void InstallPlatformFaults()
{
    // They stand in their places from the start.
}

} // namespace kv::test
