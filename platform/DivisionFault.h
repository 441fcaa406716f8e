#pragma once

// The processor raises one trap for both failures of an integer division: a divisor of zero, and a quotient that its
// register cannot hold. Programs are told which it was, so the instruction is read for its divisor.

#include <cstdint>
#include <cstring>
#include <optional>

#ifdef _WIN32
#    include <kvcore/platform/win32.h>
#else
#    include <kvcore/platform/include/faults.h>
#endif

#if defined(__x86_64__) || defined(__i386__)

namespace kv::platform
{

/// The bytes of a DIV or IDIV instruction, as they stand in the code.
class DivisionInstruction
{
public:
    static constexpr std::size_t longest = 15;

    /// Nothing if `code` is no division.
    static std::optional<DivisionInstruction> Read(unsigned char const * code, std::size_t size) noexcept
    {
        DivisionInstruction read;
        std::size_t at = read.SkipPrefixes(code, size);
        if (size - at < 2 || (code[at] != 0xF6 && code[at] != 0xF7) || (code[at + 1] & 0x30) != 0x30)
        {
            return std::nullopt;
        }
        read.width = code[at] == 0xF6 ? 1 : (read.rex & 8) != 0 ? 8 : read.isShort ? 2 : 4;
        return read.ReadOperand(code, size, at + 1) ? std::optional(read) : std::nullopt;
    }

    /// The divisor, all its bits; nothing if it lies where this cannot look.
    std::optional<std::uint64_t> Divisor(CONTEXT const & context) const noexcept
    {
        std::uint64_t value = 0;
        if (isRegister)
        {
            bool const isHighByte = width == 1 && rex == 0 && operand >= 4;
            value = isHighByte ? RegisterOf(context, operand - 4u) >> 8 : RegisterOf(context, operand);
        }
        else if (hasSegment)
        {
            return std::nullopt;
        }
        else
        {
            // The processor has read it before it found that it cannot divide: it is there.
            std::memcpy(&value, reinterpret_cast<void const *>(static_cast<std::uintptr_t>(AddressOf(context))), width);
        }
        return width == 8 ? value : value & ((std::uint64_t{1} << (8 * width)) - 1);
    }

private:
    static constexpr unsigned noRegister = 16;
    static constexpr unsigned instructionPointer = 17;

    std::size_t SkipPrefixes(unsigned char const * code, std::size_t size) noexcept
    {
        std::size_t at = 0;
        for (; at < size; ++at)
        {
            unsigned char const byte = code[at];
            if (byte == 0x66)
            {
                isShort = true;
            }
            else if (byte == 0x67)
            {
                hasShortAddress = true;
            }
            else if (byte == 0x64 || byte == 0x65)
            {
                hasSegment = true;
            }
            else if (byte != 0x26 && byte != 0x2E && byte != 0x36 && byte != 0x3E && byte != 0xF2 && byte != 0xF3)
            {
                break;
            }
        }
#    ifdef __x86_64__
        if (at < size && code[at] >> 4 == 4)
        {
            rex = code[at++];
        }
#    endif
        return at;
    }

    /// The operand's byte, the one for an index, and the displacement. False if the code ends before.
    bool ReadOperand(unsigned char const * code, std::size_t size, std::size_t at) noexcept
    {
        unsigned const mode = code[at] >> 6;
        unsigned const low = code[at] & 7;
        ++at;
        isRegister = mode == 3;
        operand = low | (rex & 1u) << 3;
        if (isRegister)
        {
            return true;
        }
#    ifdef __i386__
        if (hasShortAddress)
        {
            return false; // 16 bits of address: no compiler of this time makes them
        }
#    endif
        std::size_t displacementSize = mode == 1 ? 1 : mode == 2 ? 4 : 0;
        base = operand;
        if (low == 4)
        {
            if (at == size)
            {
                return false;
            }
            unsigned const scaled = code[at++];
            index = (scaled >> 3 & 7u) | (rex & 2u) << 2;
            index = index == 4 ? noRegister : index;
            scale = scaled >> 6;
            base = (scaled & 7u) | (rex & 1u) << 3;
            if ((scaled & 7u) == 5 && mode == 0)
            {
                base = noRegister;
                displacementSize = 4;
            }
        }
        else if (low == 5 && mode == 0)
        {
            base = sizeof(void *) == 8 ? instructionPointer : noRegister;
            displacementSize = 4;
        }
        if (size - at < displacementSize)
        {
            return false;
        }
        ReadDisplacement(code + at, displacementSize);
        length = at + displacementSize;
        return true;
    }

    void ReadDisplacement(unsigned char const * from, std::size_t size) noexcept
    {
        if (size == 1)
        {
            displacement = static_cast<signed char>(*from);
        }
        else if (size == 4)
        {
            std::memcpy(&displacement, from, sizeof displacement);
        }
    }

    std::uint64_t AddressOf(CONTEXT const & context) const noexcept
    {
        std::uint64_t address = static_cast<std::uint64_t>(std::int64_t{displacement});
        address += base == instructionPointer ? InstructionPointerOf(context) + length : RegisterOf(context, base);
        address += RegisterOf(context, index) << scale;
        return sizeof(void *) == 4 || hasShortAddress ? address & 0xFFFFFFFFu : address;
    }

#    ifdef __x86_64__

    static std::uint64_t InstructionPointerOf(CONTEXT const & context) noexcept
    {
        return context.Rip;
    }

    static std::uint64_t RegisterOf(CONTEXT const & context, unsigned number) noexcept
    {
        std::uint64_t const registers[] = {context.Rax, context.Rcx, context.Rdx, context.Rbx, context.Rsp, context.Rbp,
                                           context.Rsi, context.Rdi, context.R8,  context.R9,  context.R10, context.R11,
                                           context.R12, context.R13, context.R14, context.R15};
        return number < noRegister ? registers[number] : 0;
    }

#    else

    static std::uint64_t InstructionPointerOf(CONTEXT const & context) noexcept
    {
        return context.Eip;
    }

    static std::uint64_t RegisterOf(CONTEXT const & context, unsigned number) noexcept
    {
        std::uint64_t const registers[] = {context.Eax, context.Ecx, context.Edx, context.Ebx,
                                           context.Esp, context.Ebp, context.Esi, context.Edi};
        return number < 8 ? registers[number] : 0;
    }

#    endif

    unsigned rex = 0;
    bool isShort = false;
    bool hasShortAddress = false;
    bool hasSegment = false;
    bool isRegister = false;
    unsigned width = 0; // bytes
    unsigned operand = 0;
    unsigned base = noRegister;
    unsigned index = noRegister;
    unsigned scale = 0;
    std::int32_t displacement = 0;
    std::size_t length = 0;
};

/// Whether the division that `code` begins with has failed for its quotient, its divisor not being zero.
inline bool IsQuotientTooLarge(unsigned char const * code, std::size_t size, CONTEXT const & context) noexcept
{
    std::optional<DivisionInstruction> const division = DivisionInstruction::Read(code, size);
    std::optional<std::uint64_t> const divisor = division ? division->Divisor(context) : std::nullopt;
    return divisor && *divisor != 0;
}

} // namespace kv::platform

#endif
