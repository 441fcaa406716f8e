#pragma once

// What a report wants from a module's file: the symbol at an address and the build's identity. The file may be any
// bytes; it is read with bounds, piece by piece, and not mapped.

#include <cstddef>
#include <cstdint>

#include "ProcFiles.h"

namespace kv::platform
{

struct SymbolName
{
    char name[512];       // as the linker knows it; cut off if it is longer
    std::uint64_t offset; // of the address in the symbol
};

class ElfFile
{
public:
    explicit ElfFile(char const * path);

    /// The address at which the file's first segment wants to be. False if it is no module of this processor's width.
    bool FirstAddress(std::uint64_t & address) const;

    /// The function at an address as the file counts them. False if it has no name.
    bool FindSymbol(std::uint64_t address, SymbolName & symbol) const;

    /// The linker's hash of what it built. The number of bytes, 0 if there is none.
    std::size_t BuildId(unsigned char * bytes, std::size_t capacity) const;

private:
    bool Read(std::uint64_t offset, void * data, std::size_t size) const;
    bool FindSymbolIn(std::uint32_t kind, std::uint64_t address, SymbolName & symbol) const;

    Descriptor file;
    bool valid = false;
    std::uint64_t programHeaders = 0;
    std::uint64_t sectionHeaders = 0;
    unsigned programHeaderCount = 0;
    unsigned sectionHeaderCount = 0;
};

} // namespace kv::platform
