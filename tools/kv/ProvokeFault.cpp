#include <kvcore/tools/kv/ProvokeFault.h>

#include <cfenv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include <kvcore/files/MemoryMappedFile.h>
#include <kvcore/tools/support/Paths.h>

namespace kv::tools
{

namespace
{

// A sanitizer would tell of each before the processor does.
#define FAULTS [[gnu::noinline, gnu::no_sanitize("address", "undefined", "thread")]]

int volatile * volatile nowhere = nullptr;
int volatile zero = 0;
double volatile floatingZero = 0;

FAULTS void Read()
{
    zero = *nowhere;
}

FAULTS void Write()
{
    *nowhere = 1;
}

FAULTS void Call()
{
    void (*volatile function)() = nullptr;
    function();
    zero = 0; // or the call would be a jump, and this function forgotten
}

// In the C library, which knows nothing of exceptions.
FAULTS void Measure()
{
    zero = static_cast<int>(std::strlen(reinterpret_cast<char const *>(const_cast<int const *>(nowhere))));
}

FAULTS void Divide()
{
    int volatile const none = 0;
    zero = 1 / none;
}

FAULTS void DivideFloating()
{
#ifdef __SSE2__
    unsigned const traps = __builtin_ia32_stmxcsr();
    constexpr unsigned divisionMask = 0x200;
    struct Restore
    {
        ~Restore()
        {
            __builtin_ia32_ldmxcsr(state);
        }
        unsigned state;
    } const restore = {traps};
    __builtin_ia32_ldmxcsr(traps & ~divisionMask);
    double const quotient = 1.0 / floatingZero;
    floatingZero = quotient;
    floatingZero = 0;
#else
    throw std::runtime_error("this processor has no such trap");
#endif
}

FAULTS void Illegal()
{
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("ud2");
#else
    __builtin_trap();
#endif
}

FAULTS void Privileged()
{
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("hlt");
#else
    throw std::runtime_error("this processor has no such trap");
#endif
}

FAULTS void BreakPoint()
{
#if defined(__x86_64__) || defined(__i386__)
    asm volatile("int3");
#else
    throw std::runtime_error("this processor has no such trap");
#endif
}

int Recurse(int depth);
int (*volatile recurse)(int) = Recurse; // a variable, or the compiler sees that it never ends

FAULTS int Recurse(int depth)
{
    char volatile bulk[256];
    bulk[0] = static_cast<char>(depth);
    return recurse(depth + 1) + bulk[0];
}

void ExhaustStack()
{
    zero = recurse(0);
}

/// A file that is there for as long as this object.
struct TemporaryFile
{
    TemporaryFile()
    {
        std::random_device random;
        path = std::filesystem::temp_directory_path() / ("kv-crash-" + std::to_string(random()));
        std::ofstream(path) << std::string(65536, 'x');
    }
    ~TemporaryFile()
    {
        std::error_code error;
        std::filesystem::remove(path, error);
    }
    std::filesystem::path path;
};

FAULTS void ReadMapped(char const volatile * place)
{
    zero = *place;
}

void ReadBehindEnd()
{
    TemporaryFile const file;
    MemoryMappedFileForRead mapped(LibraryPath(file.path));
    std::error_code error;
    if (mapped.map(0, -1) <= 0)
    {
        throw std::runtime_error("the file cannot be mapped");
    }
    std::filesystem::resize_file(file.path, 0, error);
    if (error)
    {
        throw std::runtime_error("this system does not let a mapped file be cut");
    }
    ReadMapped(mapped.getMemAdr());
}

} // namespace

ProvokedFault const provokedFaults[] = {
    {"read", "a read through a null pointer", Read},
    {"write", "a write through a null pointer", Write},
    {"call", "a call through a null pointer", Call},
    {"library", "a null pointer handed to the C library", Measure},
    {"divide", "an integer division by zero", Divide},
    {"float", "a floating-point division by zero with traps on", DivideFloating},
    {"illegal", "an illegal instruction", Illegal},
    {"privileged", "a privileged instruction", Privileged},
    {"break", "a break point", BreakPoint},
    {"mapped", "a read behind a mapped file's end", ReadBehindEnd},
    {"stack", "an exhausted stack", ExhaustStack},
};
std::size_t const provokedFaultCount = sizeof provokedFaults / sizeof provokedFaults[0];

} // namespace kv::tools
