#include <algorithm>
#include <cpuid.h>

#include <unistd.h>

#include <kvcore/platform/include/fileapi.h>

void WINAPI GetSystemInfo(SYSTEM_INFO * information)
{
    constexpr DWORD maskBits = 64;
    *information = {};
    information->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    information->dwPageSize = 4096;
    information->lpMinimumApplicationAddress = reinterpret_cast<LPVOID>(0x10000);
    information->lpMaximumApplicationAddress = reinterpret_cast<LPVOID>(0x7FFFFFFEFFFF);
    information->dwNumberOfProcessors = static_cast<DWORD>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    DWORD const counted = std::min(information->dwNumberOfProcessors, maskBits);
    information->dwActiveProcessorMask = ~DWORD_PTR{0} >> (maskBits - counted);
    information->dwProcessorType = 8664;
    // Views begin at multiples of this, and so do the parts of a file that they show.
    information->dwAllocationGranularity = 65536;
    unsigned signature = 0;
    unsigned unused = 0;
    if (__get_cpuid(1, &signature, &unused, &unused, &unused) != 0)
    {
        unsigned const family = (signature >> 8 & 0xF) + (signature >> 20 & 0xFF);
        unsigned const model = (signature >> 4 & 0xF) | (signature >> 12 & 0xF0);
        information->wProcessorLevel = static_cast<WORD>(family);
        information->wProcessorRevision = static_cast<WORD>(model << 8 | (signature & 0xF));
    }
}
