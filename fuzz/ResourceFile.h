#pragma once

// A module's file for what reads resources: bytes as they are, or a single resource put into the form in which a file
// of this system carries it.

#include <array>
#include <string>

#include <elf.h>
#include <sys/mman.h>
#include <unistd.h>

#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace fuzz
{

/// A file in memory that has a name while it lives.
class ResourceFile
{
public:
    explicit ResourceFile(std::string const & bytes) : number(memfd_create("module", MFD_CLOEXEC))
    {
        Check(
            number >= 0 && write(number, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "no file can be made");
        path = kv::platform::PathFromNative("/proc/self/fd/" + std::to_string(number));
    }
    ResourceFile(ResourceFile const &) = delete;
    ResourceFile & operator=(ResourceFile const &) = delete;
    ~ResourceFile()
    {
        close(number);
    }

    WCHAR const * Path() const
    {
        return path.c_str();
    }

private:
    int number;
    WString path;
};

/// A value as it lies in a file.
template <class T>
std::string Stored(T const & value)
{
    return std::string(reinterpret_cast<char const *>(&value), sizeof(value));
}

inline std::string Padded(std::string bytes)
{
    bytes.resize((bytes.size() + 3) & ~std::size_t{3});
    return bytes;
}

/// A record of compiled resources: one resource with numbers for its type and its name.
inline std::string ResourceRecord(WORD type, WORD name, WORD language, std::string const & data)
{
    std::array<WORD, 4> const ids{0xFFFF, type, 0xFFFF, name};
    std::array<WORD, 8> const properties{0, 0, 0, language, 0, 0, 0, 0};
    return Stored(DWORD(data.size())) + Stored(DWORD{32}) + Stored(ids) + Stored(properties) + Padded(data);
}

/// A file of this system with nothing but a note that holds the records.
inline std::string ElfOfRecords(std::string const & records)
{
    std::string const note =
        Stored(DWORD{7}) + Stored(DWORD(records.size())) + Stored(DWORD{1}) + std::string("KVCore\0", 8) + records;
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_phoff = sizeof(header);
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 1;
    Elf64_Phdr part{};
    part.p_type = PT_NOTE;
    part.p_offset = sizeof(header) + sizeof(part);
    part.p_filesz = part.p_memsz = note.size();
    return Stored(header) + Stored(part) + note;
}

/// The file as a module whose resources can be asked for, while it lives.
class DataModule
{
public:
    // A dot at the end says that the name has no ".so" to be added.
    explicit DataModule(WCHAR const * path)
        : module(LoadLibraryExW((path + WString(TEXT("."))).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE))
    {
    }
    DataModule(DataModule const &) = delete;
    DataModule & operator=(DataModule const &) = delete;
    ~DataModule()
    {
        if (module != nullptr)
        {
            Check(FreeLibrary(module) != FALSE, "a module that was loaded cannot be freed");
        }
    }

    HMODULE Get() const
    {
        return module;
    }

private:
    HMODULE module;
};

} // namespace fuzz
