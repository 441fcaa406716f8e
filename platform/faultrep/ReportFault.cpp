// "ReportFault": a crash report as a text file.
//
// The process has just faulted, and nothing of it is sound: no heap, no locks of the C library, no names that were not
// put into place beforehand. Everything comes from the kernel's files, the modules' files and the stack.

#include <cerrno>
#include <cstring>
#include <ctime>

#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <unwind.h>

#include <atomic>
#include <climits>
#include <string>

#include <kvcore/platform/CrashReports.h>
#include <kvcore/platform/include/faults.h>
#include <kvcore/platform/linux/faults/ReportFiles.h>

#include "ElfFile.h"
#include "ModuleTable.h"
#include "ProcFiles.h"
#include "ReportText.h"

namespace kv::platform
{

namespace
{

// Found when the module is loaded, since that needs the heap. Empty if there is no place for reports.
char reportFolder[PATH_MAX];

[[gnu::constructor]] void FindReportFolder()
{
    std::string const folder = CrashReportFolder();
    if (folder.size() < sizeof reportFolder - 64)
    {
        std::memcpy(reportFolder, folder.c_str(), folder.size() + 1);
    }
}

constexpr int mostFrames = 96;

struct StackFrames
{
    std::uint64_t addresses[mostFrames];
    bool exact[mostFrames]; // the instruction itself, and not the one behind a call
    int count;
    bool atFault; // what has been collected begins with the fault
    bool more;
};

/// What a report is put together in: too large for a stack that has come to its end.
ModuleTable modules;
StackFrames frames;

/// One report at a time. A thread that faults in its own report writes no other.
class Turn
{
public:
    Turn()
    {
        int const self = static_cast<int>(syscall(SYS_gettid));
        int nobody = 0;
        while (!owner.compare_exchange_strong(nobody, self, std::memory_order_acquire))
        {
            if (nobody == self)
            {
                return;
            }
            nobody = 0;
            sched_yield();
        }
        mine = true;
    }
    ~Turn()
    {
        if (mine)
        {
            owner.store(0, std::memory_order_release);
        }
    }
    Turn(Turn const &) = delete;
    Turn & operator=(Turn const &) = delete;

    explicit operator bool() const
    {
        return mine;
    }

private:
    static std::atomic<int> owner;
    bool mine = false;
};

std::atomic<int> Turn::owner = 0;

// The folder

struct Moment
{
    int year;
    unsigned month;
    unsigned day;
    unsigned hour;
    unsigned minute;
    unsigned second;
};

// The C library's conversion may want its lock and the time zone's file.
Moment Utc(std::int64_t seconds)
{
    std::int64_t const day = seconds / 86400;
    unsigned const rest = static_cast<unsigned>(seconds % 86400);
    // Years from March on, in cycles of 400 of them.
    std::int64_t const shifted = day + 719468;
    std::int64_t const cycle = shifted / 146097;
    unsigned const dayOfCycle = static_cast<unsigned>(shifted - cycle * 146097);
    unsigned const year = (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
    unsigned const dayOfYear = dayOfCycle - (365 * year + year / 4 - year / 100);
    unsigned const month = (5 * dayOfYear + 2) / 153;
    Moment moment;
    moment.day = dayOfYear - (153 * month + 2) / 5 + 1;
    moment.month = month < 10 ? month + 3 : month - 9;
    moment.year = static_cast<int>(cycle * 400 + year) + (moment.month <= 2);
    moment.hour = rest / 3600;
    moment.minute = rest / 60 % 60;
    moment.second = rest % 60;
    return moment;
}

void PutDigits(char *& to, unsigned value, int digits)
{
    for (int i = digits; i-- > 0; value /= 10)
    {
        to[i] = static_cast<char>('0' + value % 10);
    }
    to += digits;
}

void PutNumber(char *& to, unsigned value)
{
    int digits = 1;
    for (unsigned rest = value; rest >= 10; rest /= 10)
    {
        ++digits;
    }
    PutDigits(to, value, digits);
}

constexpr char namePrefix[] = "crash-";
constexpr char nameEnd[] = ".txt";

// Names sort by time: crash-<date>-<time>-<process>-<number>.txt
void MakeName(char * to, Moment const & now, unsigned number)
{
    std::memcpy(to, namePrefix, sizeof namePrefix - 1);
    to += sizeof namePrefix - 1;
    PutDigits(to, static_cast<unsigned>(now.year), 4);
    PutDigits(to, now.month, 2);
    PutDigits(to, now.day, 2);
    *to++ = '-';
    PutDigits(to, now.hour, 2);
    PutDigits(to, now.minute, 2);
    PutDigits(to, now.second, 2);
    *to++ = '-';
    PutNumber(to, static_cast<unsigned>(getpid()));
    *to++ = '-';
    PutDigits(to, number, 4);
    std::memcpy(to, nameEnd, sizeof nameEnd);
}

int CreateReport(char (&path)[PATH_MAX], Moment const & now)
{
    if (reportFolder[0] == 0)
    {
        return -1;
    }
    mkdir(reportFolder, 0700); // what a program held in its memory is nobody else's business
    std::size_t const length = std::strlen(reportFolder);
    std::memcpy(path, reportFolder, length);
    path[length] = '/';
    for (unsigned number = 0; number < 10000; ++number)
    {
        MakeName(path + length + 1, now, number);
        int const file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (file >= 0 || errno != EEXIST)
        {
            return file;
        }
    }
    return -1;
}

bool IsReportName(char const * name)
{
    std::size_t const length = std::strlen(name);
    return length > sizeof namePrefix + sizeof nameEnd && length < NAME_MAX &&
        std::memcmp(name, namePrefix, sizeof namePrefix - 1) == 0 &&
        std::strcmp(name + length - (sizeof nameEnd - 1), nameEnd) == 0;
}

// The oldest reports go until there are no more than are kept. A folder that somebody has filled with thousands is
// brought down by a few with every report.
void RemoveOldest()
{
    char path[PATH_MAX];
    std::size_t const length = std::strlen(reportFolder);
    std::memcpy(path, reportFolder, length);
    path[length] = '/';
    char * const oldest = path + length + 1;
    for (int round = 0; round < 8; ++round)
    {
        int count = 0;
        FolderReader folder(reportFolder);
        while (char const * const name = folder.Next())
        {
            if (IsReportName(name) && (count++ == 0 || std::strcmp(name, oldest) < 0))
            {
                std::memcpy(oldest, name, std::strlen(name) + 1);
            }
        }
        if (count <= mostCrashReports || unlink(path) != 0)
        {
            return;
        }
    }
}

// The report

char const * NameOfCode(DWORD code)
{
    switch (code)
    {
    case STATUS_DATATYPE_MISALIGNMENT:
        return "Data type misalignment";
    case STATUS_BREAKPOINT:
        return "Break point";
    case STATUS_SINGLE_STEP:
        return "Single step";
    case STATUS_ACCESS_VIOLATION:
        return "Access violation";
    case STATUS_IN_PAGE_ERROR:
        return "In page error";
    case STATUS_ILLEGAL_INSTRUCTION:
        return "Illegal instruction";
    case STATUS_ARRAY_BOUNDS_EXCEEDED:
        return "Array bounds exceeded";
    case STATUS_FLOAT_DENORMAL_OPERAND:
        return "Denormal operand (FLT)";
    case STATUS_FLOAT_DIVIDE_BY_ZERO:
        return "Divide by zero (FLT)";
    case STATUS_FLOAT_INEXACT_RESULT:
        return "Inexact result (FLT)";
    case STATUS_FLOAT_INVALID_OPERATION:
        return "Invalid operation (FLT)";
    case STATUS_FLOAT_OVERFLOW:
        return "Overflow (FLT)";
    case STATUS_FLOAT_STACK_CHECK:
        return "Stack check (FLT)";
    case STATUS_FLOAT_UNDERFLOW:
        return "Underflow (FLT)";
    case STATUS_INTEGER_DIVIDE_BY_ZERO:
        return "Divide by zero (INT)";
    case STATUS_INTEGER_OVERFLOW:
        return "Overflow (INT)";
    case STATUS_PRIVILEGED_INSTRUCTION:
        return "Priv instruction";
    case STATUS_STACK_OVERFLOW:
        return "Stack overflow";
    default:
        return "Unknown";
    }
}

void PutMoment(ReportText & text, Moment const & moment)
{
    text.Decimal(static_cast<unsigned>(moment.year), 4).Put("-").Decimal(moment.month, 2).Put("-");
    text.Decimal(moment.day, 2).Put(" ").Decimal(moment.hour, 2).Put(":").Decimal(moment.minute, 2).Put(":");
    text.Decimal(moment.second, 2).Put(" UTC");
}

void PutProcess(ReportText & text, Moment const & now)
{
    char path[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", path, sizeof path);
    text.Put("KVCore crash report\n\nTime:    ");
    PutMoment(text, now);
    text.Put("\nProcess: ").PutForeign(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    text.Put(" (").Decimal(static_cast<unsigned>(getpid())).Put(")\nCommand: ");
    char command[4096];
    std::size_t size = ReadStart("/proc/self/cmdline", command, sizeof command);
    size -= size > 0 && command[size - 1] == 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        command[i] = command[i] == 0 ? ' ' : command[i];
    }
    text.PutForeign(command, size);
    utsname system;
    if (uname(&system) == 0)
    {
        text.Put("\nSystem:  ").Put(system.sysname).Put(" ").Put(system.release).Put(" ").Put(system.machine);
    }
    text.Put("\n");
}

// "/usr/lib/libx.so.1+0x1234 (name+0x12)"; an address in no module has no place but itself.
void PutPlace(ReportText & text, std::uint64_t address)
{
    LoadedModule const * const module = modules.Find(address);
    if (module == nullptr)
    {
        text.Put("in no module");
        return;
    }
    text.PutForeign(module->path, std::strlen(module->path)).Put("+").Hex(address - module->low);
    ElfFile const file(module->path);
    std::uint64_t first = 0;
    SymbolName symbol;
    if (file.FirstAddress(first) && file.FindSymbol(address - module->low + first, symbol))
    {
        text.Put(" (").PutForeign(symbol.name, std::strlen(symbol.name)).Put("+").Hex(symbol.offset).Put(")");
    }
}

/// The name that the program gave the thread, if it did: the system's own has room for 15 bytes.
void PutScope(ReportText & text)
{
    constexpr std::size_t longest = 256;
    WCHAR const * const name = FaultName();
    if (name != nullptr && name[0] != 0)
    {
        std::size_t size = 0;
        while (size < longest && name[size] != 0)
        {
            ++size;
        }
        text.Put("Scope:   ").PutForeign(name, size).Put("\n");
    }
}

void PutWhat(ReportText & text, EXCEPTION_RECORD const & record)
{
    text.Put("\nWhat:    ").Put(NameOfCode(record.ExceptionCode)).Put(" (").Hex(record.ExceptionCode, 8).Put(")");
    bool const isAccess =
        record.ExceptionCode == STATUS_ACCESS_VIOLATION || record.ExceptionCode == STATUS_IN_PAGE_ERROR;
    if (isAccess && record.NumberParameters >= 2)
    {
        ULONG_PTR const access = record.ExceptionInformation[0];
        text.Put(access == 1 ? ", writing to " : access == 8 ? ", executing " : ", reading from ");
        text.Hex(record.ExceptionInformation[1], 16);
    }
    std::uint64_t const address = reinterpret_cast<std::uint64_t>(record.ExceptionAddress);
    text.Put("\nWhere:   ").Hex(address, 16).Put(" ");
    PutPlace(text, address);
    char name[64];
    std::size_t size = ReadStart("/proc/thread-self/comm", name, sizeof name);
    size -= size > 0 && name[size - 1] == '\n';
    text.Put("\nThread:  ").Decimal(static_cast<std::uint64_t>(syscall(SYS_gettid))).Put(" ");
    text.PutForeign(name, size).Put("\n");
    PutScope(text);
}

void PutRegisters(ReportText & text, CONTEXT const & context)
{
    struct Register
    {
        char const * name;
        std::uint64_t value;
    };
#ifdef __x86_64__
    Register const registers[] = {
        {"rax   ", context.Rax}, {"rbx   ", context.Rbx},    {"rcx   ", context.Rcx},   {"rdx   ", context.Rdx},
        {"rsi   ", context.Rsi}, {"rdi   ", context.Rdi},    {"rbp   ", context.Rbp},   {"rsp   ", context.Rsp},
        {"r8    ", context.R8},  {"r9    ", context.R9},     {"r10   ", context.R10},   {"r11   ", context.R11},
        {"r12   ", context.R12}, {"r13   ", context.R13},    {"r14   ", context.R14},   {"r15   ", context.R15},
        {"rip   ", context.Rip}, {"flags ", context.EFlags}, {"mxcsr ", context.MxCsr},
    };
#else
    Register const registers[] = {{"pc    ", context.Pc}, {"sp    ", context.Sp}};
#endif
    text.Put("\nRegisters\n");
    int column = 0;
    for (Register const & one : registers)
    {
        text.Put(column % 3 == 0 ? "  " : "   ").Put(one.name).Hex(one.value, 16);
        text.Put(++column % 3 == 0 ? "\n" : "");
    }
    text.Put(column % 3 == 0 ? "" : "\n");
}

_Unwind_Reason_Code Collect(_Unwind_Context * context, void *)
{
    int exact = 0;
    std::uint64_t const address = _Unwind_GetIPInfo(context, &exact);
    // What lies over the fault is this report's own.
    if (exact != 0 && !frames.atFault)
    {
        frames.atFault = true;
        frames.count = 0;
    }
    // A thread's first function has no caller, which some unwind tables tell with a return address of zero.
    if (address == 0 && frames.count > 0)
    {
        return _URC_END_OF_STACK;
    }
    if (frames.count == mostFrames)
    {
        frames.more = true;
        return _URC_END_OF_STACK;
    }
    frames.addresses[frames.count] = address;
    frames.exact[frames.count++] = exact != 0;
    return _URC_NO_REASON;
}

// On a damaged stack this faults in its turn, and the fault may come as an exception: then the report has what was
// found so far.
bool CollectFrames()
{
    frames.count = 0;
    frames.atFault = false;
    frames.more = false;
    try
    {
        _Unwind_Backtrace(Collect, nullptr);
        return true;
    }
    catch (...)
    {
        return false;
    }
}

void PutStack(ReportText & text)
{
    text.Put("\nStack\n");
    text.Flush();
    bool const whole = CollectFrames();
    for (int i = 0; i < frames.count; ++i)
    {
        text.Put(i < 10 ? "   " : "  ")
            .Decimal(static_cast<unsigned>(i))
            .Put(" ")
            .Hex(frames.addresses[i], 16)
            .Put(" ");
        PutPlace(text, frames.addresses[i] - !frames.exact[i]);
        text.Put("\n");
    }
    if (frames.more)
    {
        text.Put("  Further frames are left out.\n");
    }
    if (!whole)
    {
        text.Put("  The stack could not be followed any further.\n");
    }
}

void PutThreads(ReportText & text)
{
    text.Put("\nThreads\n");
    constexpr int most = 1000;
    int count = 0;
    FolderReader folder("/proc/self/task");
    while (char const * const name = folder.Next())
    {
        std::size_t const length = std::strlen(name);
        if (name[0] == '.' || length > 16)
        {
            continue;
        }
        if (++count > most)
        {
            text.Put("  Further threads are left out.\n");
            return;
        }
        char path[64] = "/proc/self/task/";
        std::memcpy(path + 16, name, length);
        std::memcpy(path + 16 + length, "/comm", 6);
        char label[64];
        std::size_t size = ReadStart(path, label, sizeof label);
        size -= size > 0 && label[size - 1] == '\n';
        text.Put("  ").Put(name).Put(" ").PutForeign(label, size).Put("\n");
    }
}

// The version that the file's own name ends with, as the system's libraries have it.
char const * VersionInName(char const * path)
{
    char const * const end = std::strstr(path, ".so.");
    return end != nullptr ? end + 4 : "-";
}

void PutModules(ReportText & text)
{
    text.Put("\nModules (address, version, build, file)\n");
    for (std::size_t i = 0; i < modules.Count(); ++i)
    {
        LoadedModule const & module = modules[i];
        char const * const version = VersionInName(module.path);
        text.Put("  ").Hex(module.low, 16).Put("-").Hex(module.high, 16).Put(" ");
        text.PutForeign(version, std::strlen(version)).Put(" ");
        unsigned char build[32];
        std::size_t const size = ElfFile(module.path).BuildId(build, sizeof build);
        for (std::size_t k = 0; k < size; ++k)
        {
            char const digits[] = {"0123456789abcdef"[build[k] >> 4], "0123456789abcdef"[build[k] & 15]};
            text.Put(digits, 2);
        }
        text.Put(size == 0 ? "- " : " ").PutForeign(module.path, std::strlen(module.path)).Put("\n");
    }
    if (modules.LeftOut() > 0)
    {
        text.Put("  ").Decimal(modules.LeftOut()).Put(" further modules are left out.\n");
    }
}

void PutFiles(ReportText & text)
{
    text.Put("\nFiles\n");
    for (std::size_t i = 0; i < mostReportFiles; ++i)
    {
        char const * const path = RegisteredReportFile(i);
        if (path == nullptr)
        {
            continue;
        }
        text.Put("  ").PutForeign(path, std::strlen(path));
        struct stat status;
        if (stat(path, &status) == 0)
        {
            text.Put(", ").Decimal(static_cast<std::uint64_t>(status.st_size)).Put(" bytes, ");
            PutMoment(text, Utc(status.st_mtime < 0 ? 0 : status.st_mtime));
        }
        else
        {
            text.Put(", not there");
        }
        text.Put("\n");
    }
}

void WriteReport(ReportText & text, EXCEPTION_POINTERS const & fault, Moment const & now)
{
    PutProcess(text, now);
    text.Flush();
    modules.Fill();
    PutWhat(text, *fault.ExceptionRecord);
    if (fault.ContextRecord != nullptr)
    {
        PutRegisters(text, *fault.ContextRecord);
    }
    PutStack(text);
    PutThreads(text);
    PutModules(text);
    PutFiles(text);
    text.Put("\nEnd of report\n");
    text.Flush();
}

} // namespace

} // namespace kv::platform

extern "C" KVCORE_API EFaultRepRetVal WINAPI ReportFault(LPEXCEPTION_POINTERS fault, DWORD)
{
    using namespace kv::platform;
    Turn const turn;
    if (!turn || fault == nullptr || fault->ExceptionRecord == nullptr)
    {
        return frrvErr;
    }
    Moment const now = Utc(std::time(nullptr));
    static char path[PATH_MAX];
    Descriptor const file(CreateReport(path, now));
    if (!file)
    {
        return frrvErr;
    }
    ReportText text(file.Get());
    WriteReport(text, *fault, now);
    if (!text.HasAny())
    {
        unlink(path); // the disk is full, for instance: an empty report must not take the place of another one
        return frrvErr;
    }
    RemoveOldest();
    return text.IsWhole() ? frrvOk : frrvErr;
}
