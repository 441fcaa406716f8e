#include "ForeignFrames.h"

#ifdef __i386__

#    include <array>
#    include <cstddef>
#    include <cstdint>
#    include <cstring>
#    include <initializer_list>

#    include <unwind.h>

// The published way of 32-bit Windows: a function that calls others keeps its caller's frame pointer at the word that
// its own points at, the return address behind that, and what else it must preserve in front of it, in the order of the
// pushes that it begins with. The system's libraries keep to it, so that debuggers find their way.

extern "C"
{
    struct dwarf_eh_bases
    {
        void * text;
        void * data;
        void * function;
    };
    void const * _Unwind_Find_FDE(void * address, dwarf_eh_bases * bases);
    void __register_frame_info(void const * table, void * object);
    void * __deregister_frame_info(void const * table);
}

namespace kv::platform
{

namespace
{

using Byte = unsigned char;

template <class T>
T Read(DWORD address)
{
    T value;
    std::memcpy(&value, reinterpret_cast<void const *>(address), sizeof value);
    return value;
}

/// The bytes of code around an address that can be read as one, or none.
struct Code
{
    DWORD begin = 0;
    DWORD end = 0;

    explicit Code(DWORD address)
    {
        MEMORY_BASIC_INFORMATION region;
        constexpr DWORD executable = PAGE_EXECUTE | PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
        if (VirtualQuery(reinterpret_cast<void *>(address), &region, sizeof region) == sizeof region &&
            region.State == MEM_COMMIT && (region.Protect & executable) != 0 && (region.Protect & PAGE_GUARD) == 0)
        {
            begin = reinterpret_cast<DWORD>(region.BaseAddress);
            end = begin + region.RegionSize;
        }
    }
    bool Has(DWORD address, DWORD size) const
    {
        return begin <= address && address < end && size <= end - address;
    }
};

/// What the system keeps of the calling thread. The compiler takes the header's way to it for an access through null.
NT_TIB const & ThreadBlock()
{
    NT_TIB const * block;
    asm("movl %%fs:0x18, %0" : "=r"(block));
    return *block;
}

/// Whether a word of the calling thread's stack lies there.
bool IsStackWord(DWORD address)
{
    DWORD const low = reinterpret_cast<DWORD>(__builtin_frame_address(0));
    DWORD const high = reinterpret_cast<DWORD>(ThreadBlock().StackBase);
    return address % sizeof(DWORD) == 0 && low <= address && address <= high - sizeof(DWORD);
}

/// The size of an indirect call's instruction with this second byte and the one behind it.
DWORD IndirectCallSize(Byte mode, Byte index)
{
    DWORD const kind = mode >> 6;
    DWORD const base = mode & 7u;
    DWORD size = 2;
    if (kind == 3)
    {
        return size;
    }
    bool const hasIndex = base == 4;
    size += hasIndex;
    bool const hasNoBase = kind == 0 && (base == 5 || (hasIndex && (index & 7u) == 5));
    return size + (kind == 1 ? 1u : kind == 2 || hasNoBase ? 4u : 0u);
}

/// Where the call that stands before a return address led.
struct CallBefore
{
    bool isCall = false;
    DWORD target = 0; ///< 0 if the instruction does not say
};

/// Where code leads that does nothing but go on through a table of imports.
DWORD BehindImport(DWORD target)
{
    constexpr std::uint16_t jumpThroughTable = 0x25FF;
    if (Code(target).Has(target, 6) && Read<std::uint16_t>(target) == jumpThroughTable)
    {
        DWORD const entry = Read<DWORD>(target + 2);
        MEMORY_BASIC_INFORMATION region;
        bool const isThere = VirtualQuery(reinterpret_cast<void *>(entry), &region, sizeof region) != 0 &&
            region.State == MEM_COMMIT && (region.Protect & (PAGE_NOACCESS | PAGE_GUARD)) == 0;
        return isThere ? Read<DWORD>(entry) : 0;
    }
    return target;
}

CallBefore FindCallBefore(DWORD address)
{
    Code const code(address - 1);
    constexpr Byte directCall = 0xE8;
    if (code.Has(address - 5, 5) && Read<Byte>(address - 5) == directCall)
    {
        DWORD const target = address + Read<DWORD>(address - 4);
        if (Code(target).Has(target, 1))
        {
            return {true, BehindImport(target)};
        }
    }
    constexpr Byte group = 0xFF;
    for (DWORD size = 2; size <= 7; ++size)
    {
        if (!code.Has(address - size, size) || Read<Byte>(address - size) != group)
        {
            continue;
        }
        Byte const mode = Read<Byte>(address - size + 1);
        bool const isCall = (mode >> 3 & 7) == 2;
        if (isCall && IndirectCallSize(mode, size > 2 ? Read<Byte>(address - size + 2) : Byte{0}) == size)
        {
            return {true, 0};
        }
    }
    return {};
}

/// What the pushes at a function's beginning have put away, counted in words below its frame pointer; 0 is nowhere.
struct SavedRegisters
{
    int ebx = 0;
    int esi = 0;
    int edi = 0;
};

constexpr DWORD longestFunction = 0x10000;
constexpr Byte pushFrame = 0x55;

bool SetsFrame(DWORD address)
{
    std::uint16_t const instruction = Read<std::uint16_t>(address);
    return instruction == 0xE589 || instruction == 0xEC8B; // two spellings of `mov ebp, esp`
}

/// Where the function with this instruction in it sets up its frame, or 0.
DWORD FindFrameSetup(DWORD instruction)
{
    Code const code(instruction);
    constexpr DWORD setupSize = 3;
    for (DWORD back = setupSize; back < longestFunction && code.Has(instruction - back, setupSize); ++back)
    {
        DWORD const address = instruction - back;
        if (Read<Byte>(address) == pushFrame && SetsFrame(address + 1))
        {
            return address;
        }
    }
    return 0;
}

/// The size of an instruction that compilers put between the pushes, or 0: moves and tests of registers.
DWORD SizeOfMove(DWORD address)
{
    switch (Read<Byte>(address))
    {
    case 0x31:
    case 0x33:
    case 0x85:
    case 0x89:
    case 0x8B:
    case 0x8D:
        return IndirectCallSize(Read<Byte>(address + 1), Read<Byte>(address + 2));
    case 0xA1:
        return 5;
    default:
        return 0;
    }
}

SavedRegisters FindSavedRegisters(DWORD setup, DWORD instruction)
{
    SavedRegisters saved;
    Code const code(setup);
    int words = 0;
    constexpr DWORD longestInstruction = 8;
    for (DWORD at = setup + 3; at < instruction && code.Has(at, longestInstruction);)
    {
        Byte const first = Read<Byte>(at);
        if (first >= 0x50 && first <= 0x57) // a push of any register
        {
            ++words;
            int & place = first == 0x53 ? saved.ebx : first == 0x56 ? saved.esi : saved.edi;
            if ((first == 0x53 || first == 0x56 || first == 0x57) && place == 0)
            {
                place = words;
            }
            ++at;
        }
        else if (Read<std::uint16_t>(at) == 0xEC83) // room for local objects
        {
            words += Read<Byte>(at + 2) / 4;
            at += 3;
        }
        else if (Read<std::uint16_t>(at) == 0xEC81)
        {
            words += static_cast<int>(Read<DWORD>(at + 2) / 4);
            at += 6;
        }
        else if (DWORD const size = SizeOfMove(at); size != 0)
        {
            at += size;
        }
        else
        {
            break;
        }
    }
    return saved;
}

/// The frame of a foreign function as its caller must be found from it.
struct ForeignFrame
{
    bool isKnown = false;
    SavedRegisters saved;
};

/// The frame of the function with this instruction in it, if the frame pointer is its own.
ForeignFrame FindFrame(CallerState const & state)
{
    ForeignFrame frame;
    DWORD const setup = FindFrameSetup(state.instruction);
    if (setup == 0 || state.frame < state.stack || !IsStackWord(state.frame) || !IsStackWord(state.frame + 4))
    {
        return frame;
    }
    CallBefore const call = FindCallBefore(Read<DWORD>(state.frame + 4));
    frame.isKnown = call.isCall;
    frame.saved = FindSavedRegisters(setup, state.instruction);
    return frame;
}

DWORD SavedOr(DWORD frame, int words, DWORD value)
{
    DWORD const place = frame - static_cast<DWORD>(words) * 4;
    return words != 0 && IsStackWord(place) ? Read<DWORD>(place) : value;
}

bool LeaveFrame(CallerState & state)
{
    ForeignFrame const frame = FindFrame(state);
    if (!frame.isKnown)
    {
        return false;
    }
    state.ebx = SavedOr(state.frame, frame.saved.ebx, state.ebx);
    state.esi = SavedOr(state.frame, frame.saved.esi, state.esi);
    state.edi = SavedOr(state.frame, frame.saved.edi, state.edi);
    state.instruction = Read<DWORD>(state.frame + 4);
    state.stack = state.frame + 8;
    state.frame = Read<DWORD>(state.frame);
    return true;
}

/// Leaves a function that has no frame (yet), which has its return address on the stack's top: one that calls nothing,
/// and what was called where there is no code.
bool LeaveFrameless(CallerState & state)
{
    if (!IsStackWord(state.stack))
    {
        return false;
    }
    DWORD const caller = Read<DWORD>(state.stack);
    CallBefore const call = FindCallBefore(caller);
    bool const isElsewhere =
        call.target != 0 && (state.instruction < call.target || state.instruction - call.target >= longestFunction);
    bool const hasCode = Code(state.instruction).Has(state.instruction, 1);
    if (!call.isCall || (hasCode && isElsewhere))
    {
        return false;
    }
    state.instruction = caller;
    state.stack += sizeof(DWORD);
    return true;
}

constexpr int mostForeignFrames = 128;

} // namespace

bool HasUnwindTable(DWORD address)
{
    dwarf_eh_bases bases;
    return _Unwind_Find_FDE(reinterpret_cast<void *>(address), &bases) != nullptr;
}

bool LeaveForeignCode(CallerState & state)
{
    CallerState next = state;
    if (!LeaveFrameless(next) && !LeaveFrame(next))
    {
        return false;
    }
    for (int i = 0; i < mostForeignFrames; ++i)
    {
        if (HasUnwindTable(next.instruction - 1))
        {
            state = next;
            return true;
        }
        if (!LeaveFrame(next))
        {
            return false;
        }
    }
    return false;
}

namespace
{

// What the unwinder is told of a place in foreign code to which a call returns: a table as the compiler writes them, in
// which the frame's description holds for that one place.

/// For the places of all threads of a process: they are as many as there are ways in which the system calls back.
constexpr std::size_t mostPlaces = 256;

struct Place
{
    DWORD returnAddress;
    std::array<Byte, 96> table;
    std::array<DWORD, 16> forUnwinder; // who wants a few words for each table
};

Place places[mostPlaces];
std::size_t placeCount = 0;
SRWLOCK placesLock = SRWLOCK_INIT;

class TableWriter
{
public:
    explicit TableWriter(Byte * where) : at(where) {}

    Byte * At() const
    {
        return at;
    }
    void Put(std::initializer_list<int> bytes)
    {
        for (int const byte : bytes)
        {
            *at++ = static_cast<Byte>(byte);
        }
    }
    void PutWord(DWORD word)
    {
        std::memcpy(at, &word, sizeof word);
        at += sizeof word;
    }
    void PutNumber(unsigned value) // seven bits at a time
    {
        for (; value >= 0x80; value >>= 7)
        {
            Put({static_cast<int>(value & 0x7F) | 0x80});
        }
        Put({static_cast<int>(value)});
    }
    /// Fills up to a word's end and writes the size before what was begun at `begin`.
    void End(Byte * begin)
    {
        while ((at - begin) % 4 != 0)
        {
            Put({0});
        }
        DWORD const size = static_cast<DWORD>(at - begin) - 4;
        std::memcpy(begin, &size, sizeof size);
    }

private:
    Byte * at;
};

// The numbers of registers in these tables.
constexpr int ebxNumber = 3;
constexpr int ebpNumber = 5;
constexpr int esiNumber = 6;
constexpr int ediNumber = 7;
constexpr int instructionNumber = 8;

_Unwind_Reason_Code
LeaveForeignFrame(int, _Unwind_Action actions, _Unwind_Exception_Class, _Unwind_Exception *, _Unwind_Context * context)
{
    if ((actions & _UA_CLEANUP_PHASE) != 0)
    {
        LeaveSystemHandlers(static_cast<DWORD>(_Unwind_GetGR(context, ebpNumber)) + 8);
    }
    return _URC_CONTINUE_UNWIND;
}

void PutSaved(TableWriter & writer, int number, int words)
{
    if (words != 0)
    {
        writer.Put({0x80 | number});
        writer.PutNumber(static_cast<unsigned>(words) + 2);
    }
}

void WriteTable(Byte * table, DWORD returnAddress, SavedRegisters const & saved)
{
    TableWriter writer(table);
    Byte * const common = writer.At();
    writer.PutWord(0);
    writer.PutWord(0);
    writer.Put({1, 'z', 'P', 0, 1, 0x7C, instructionNumber, 5, 0}); // sizes count in words downwards
    writer.PutWord(reinterpret_cast<DWORD>(&LeaveForeignFrame));
    writer.End(common);

    Byte * const description = writer.At();
    writer.PutWord(0);
    writer.PutWord(static_cast<DWORD>(writer.At() - common));
    writer.PutWord(returnAddress - 1); // the unwinder looks for the call
    writer.PutWord(1);
    writer.Put({0, 0x0C, ebpNumber, 8}); // the caller's stack pointer is the frame pointer and two words
    writer.Put({0x80 | instructionNumber, 1, 0x80 | ebpNumber, 2});
    PutSaved(writer, ebxNumber, saved.ebx);
    PutSaved(writer, esiNumber, saved.esi);
    PutSaved(writer, ediNumber, saved.edi);
    writer.End(description);
    writer.PutWord(0);
}

void Describe(CallerState const & state)
{
    AcquireSRWLockExclusive(&placesLock);
    if (placeCount < mostPlaces && !HasUnwindTable(state.instruction - 1))
    {
        Place & place = places[placeCount++];
        place.returnAddress = state.instruction;
        WriteTable(place.table.data(), state.instruction, FindFrame(state).saved);
        __register_frame_info(place.table.data(), place.forUnwinder.data());
    }
    ReleaseSRWLockExclusive(&placesLock);
}

/// The tables lie in this library's memory, and the unwinder may stay when that goes.
[[gnu::destructor]] void ForgetPlaces()
{
    AcquireSRWLockExclusive(&placesLock);
    while (placeCount > 0)
    {
        __deregister_frame_info(places[--placeCount].table.data());
    }
    ReleaseSRWLockExclusive(&placesLock);
}

_Unwind_Reason_Code NoteLast(_Unwind_Context * context, void * target)
{
    CallerState & last = *static_cast<CallerState *>(target);
    last.instruction = static_cast<DWORD>(_Unwind_GetIP(context));
    last.stack = static_cast<DWORD>(_Unwind_GetCFA(context));
    last.frame = static_cast<DWORD>(_Unwind_GetGR(context, ebpNumber));
    last.ebx = static_cast<DWORD>(_Unwind_GetGR(context, ebxNumber));
    last.esi = static_cast<DWORD>(_Unwind_GetGR(context, esiNumber));
    last.edi = static_cast<DWORD>(_Unwind_GetGR(context, ediNumber));
    return _URC_NO_REASON;
}

/// Whether the code belongs to a module with tables of its own. The unwinder looks for an address in the tables that
/// begin nearest below it and in no others, so that one for a place within such a module would hide its own.
bool IsAmongTables(DWORD address)
{
    MEMORY_BASIC_INFORMATION region;
    if (VirtualQuery(reinterpret_cast<void *>(address), &region, sizeof region) != sizeof region ||
        region.Type != MEM_IMAGE)
    {
        return false;
    }
    DWORD const base = reinterpret_cast<DWORD>(region.AllocationBase);
    auto const & dos = *reinterpret_cast<IMAGE_DOS_HEADER const *>(base);
    auto const & headers = *reinterpret_cast<IMAGE_NT_HEADERS const *>(base + static_cast<DWORD>(dos.e_lfanew));
    DWORD const entry = headers.OptionalHeader.AddressOfEntryPoint;
    return entry != 0 && HasUnwindTable(base + entry);
}

/// Describes the frames from here to the next of our own functions, if there is one.
bool DescribeUpToOwnCode(CallerState const & first)
{
    CallerState last = first;
    int count = 0;
    for (; count < mostForeignFrames && !HasUnwindTable(last.instruction - 1); ++count)
    {
        if (IsAmongTables(last.instruction) || !LeaveFrame(last))
        {
            return false;
        }
    }
    CallerState state = first;
    for (int i = 0; i < count; ++i)
    {
        Describe(state);
        LeaveFrame(state);
    }
    return count > 0 && count < mostForeignFrames;
}

} // namespace

void DescribeForeignCallers()
{
    for (int i = 0; i < mostForeignFrames; ++i)
    {
        CallerState last = {};
        _Unwind_Backtrace(NoteLast, &last);
        if (!DescribeUpToOwnCode(last) || !HasUnwindTable(last.instruction - 1))
        {
            return;
        }
    }
}

} // namespace kv::platform

extern "C" void kvUnwindSystemHandlers(DWORD last);

// The system's own unwinding gives back none of the registers but the frame and the stack pointer.
asm(R"(
    .text
_kvUnwindSystemHandlers:
    pushl %ebp
    movl %esp, %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    pushl $0
    pushl $0
    pushl $0
    pushl 8(%ebp)
    call _RtlUnwind@16
    leal -12(%ebp), %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret
)");

namespace kv::platform
{

void LeaveSystemHandlers(DWORD stack)
{
    using Handler = EXCEPTION_REGISTRATION_RECORD;
    Handler * const end = reinterpret_cast<Handler *>(~DWORD{0});
    Handler * const first = ThreadBlock().ExceptionList;
    Handler * last = first;
    while (last != end && reinterpret_cast<DWORD>(last) < stack && IsStackWord(reinterpret_cast<DWORD>(last)))
    {
        last = last->Next;
    }
    if (last != first && last != end && reinterpret_cast<DWORD>(last) >= stack)
    {
        kvUnwindSystemHandlers(reinterpret_cast<DWORD>(last));
    }
}

} // namespace kv::platform

#endif
