#include "ElfFile.h"

#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace kv::platform
{

namespace
{

using FileHeader = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Section = ElfW(Shdr);
using Symbol = ElfW(Sym);

constexpr unsigned mostHeaders = 4096;
constexpr std::uint64_t mostSymbols = 4 * 1024 * 1024;
constexpr std::uint64_t mostNotes = 64 * 1024;

#ifdef __LP64__
constexpr unsigned char ownClass = ELFCLASS64;
#else
constexpr unsigned char ownClass = ELFCLASS32;
#endif

} // namespace

ElfFile::ElfFile(char const * path) : file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    FileHeader header;
    if (!Read(0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ownClass || header.e_phentsize != sizeof(Segment))
    {
        return;
    }
    valid = true;
    programHeaders = header.e_phoff;
    programHeaderCount = std::min<unsigned>(header.e_phnum, mostHeaders);
    if (header.e_shentsize == sizeof(Section))
    {
        sectionHeaders = header.e_shoff;
        sectionHeaderCount = std::min<unsigned>(header.e_shnum, mostHeaders);
    }
}

bool ElfFile::Read(std::uint64_t offset, void * data, std::size_t size) const
{
    return file && offset <= INT64_MAX - size &&
        pread(file.Get(), data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool ElfFile::FirstAddress(std::uint64_t & address) const
{
    for (unsigned i = 0; valid && i < programHeaderCount; ++i)
    {
        Segment segment;
        if (!Read(programHeaders + i * sizeof segment, &segment, sizeof segment))
        {
            return false;
        }
        if (segment.p_type == PT_LOAD)
        {
            address = segment.p_vaddr & ~std::uint64_t{0xFFF};
            return true;
        }
    }
    return false;
}

bool ElfFile::FindSymbol(std::uint64_t address, SymbolName & symbol) const
{
    return FindSymbolIn(SHT_SYMTAB, address, symbol) || FindSymbolIn(SHT_DYNSYM, address, symbol);
}

bool ElfFile::FindSymbolIn(std::uint32_t kind, std::uint64_t address, SymbolName & symbol) const
{
    Section table = {};
    unsigned i = 0;
    while (valid && i < sectionHeaderCount && Read(sectionHeaders + i * sizeof table, &table, sizeof table) &&
           table.sh_type != kind)
    {
        ++i;
    }
    Section names;
    if (!valid || i >= sectionHeaderCount || table.sh_type != kind || table.sh_link >= sectionHeaderCount ||
        !Read(sectionHeaders + table.sh_link * sizeof names, &names, sizeof names))
    {
        return false;
    }

    Symbol best = {};
    std::uint64_t const count = std::min<std::uint64_t>(table.sh_size / sizeof(Symbol), mostSymbols);
    Symbol symbols[128];
    for (std::uint64_t done = 0; done < count;)
    {
        std::size_t const part = static_cast<std::size_t>(std::min<std::uint64_t>(count - done, std::size(symbols)));
        if (!Read(table.sh_offset + done * sizeof(Symbol), symbols, part * sizeof(Symbol)))
        {
            break;
        }
        for (Symbol const * candidate = symbols; candidate != symbols + part; ++candidate)
        {
            bool const isFunction = (candidate->st_info & 0xF) == STT_FUNC && candidate->st_shndx != SHN_UNDEF;
            if (isFunction && candidate->st_value <= address && address - candidate->st_value < candidate->st_size &&
                candidate->st_value >= best.st_value)
            {
                best = *candidate;
            }
        }
        done += part;
    }
    if (best.st_size == 0 || best.st_name >= names.sh_size)
    {
        return false;
    }
    std::size_t const most =
        static_cast<std::size_t>(std::min<std::uint64_t>(sizeof symbol.name - 1, names.sh_size - best.st_name));
    if (!Read(names.sh_offset + best.st_name, symbol.name, most))
    {
        return false;
    }
    symbol.name[most] = 0;
    symbol.offset = address - best.st_value;
    return symbol.name[0] != 0;
}

std::size_t ElfFile::BuildId(unsigned char * bytes, std::size_t capacity) const
{
    constexpr char owner[] = "GNU";
    std::uint64_t left = mostNotes; // of all segments, which may be the same bytes again and again
    for (unsigned i = 0; valid && i < programHeaderCount; ++i)
    {
        Segment segment;
        if (!Read(programHeaders + i * sizeof segment, &segment, sizeof segment))
        {
            return 0;
        }
        if (segment.p_type != PT_NOTE)
        {
            continue;
        }
        std::uint64_t const end = std::min<std::uint64_t>(segment.p_filesz, left);
        left -= end;
        ElfW(Nhdr) note;
        char name[sizeof owner];
        for (std::uint64_t at = 0; at + sizeof note + sizeof name <= end;)
        {
            if (!Read(segment.p_offset + at, &note, sizeof note))
            {
                break;
            }
            std::uint64_t const data = at + sizeof note + ((std::uint64_t{note.n_namesz} + 3) & ~std::uint64_t{3});
            if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof owner && note.n_descsz <= capacity &&
                Read(segment.p_offset + at + sizeof note, name, sizeof name) &&
                std::memcmp(name, owner, sizeof owner) == 0 && Read(segment.p_offset + data, bytes, note.n_descsz))
            {
                return note.n_descsz;
            }
            at = data + ((std::uint64_t{note.n_descsz} + 3) & ~std::uint64_t{3});
        }
    }
    return 0;
}

} // namespace kv::platform
