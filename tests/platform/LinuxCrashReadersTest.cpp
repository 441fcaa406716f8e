#ifndef _WIN32 // Windows has its own error reporting

#    include <elf.h>

#    include <cstring>
#    include <memory>
#    include <string>

#    include <gtest/gtest.h>

#    include <kvcore/platform/faultrep/ElfFile.h>
#    include <kvcore/platform/faultrep/ModuleTable.h>
#    include <support/CostGrowth.h>
#    include <support/ScratchFolder.h>

// The readers of a crash report: what they read may be any bytes.

namespace
{

using kv::platform::ElfFile;
using kv::platform::ModuleTable;

template <class Record>
void Append(std::string & bytes, Record const & record)
{
    bytes.append(reinterpret_cast<char const *>(&record), sizeof record);
}

Elf64_Ehdr Header()
{
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_shentsize = sizeof(Elf64_Shdr);
    return header;
}

/// A module whose segments all have the same notes, none of which is the one that is looked for.
std::string ModuleOfNotes(std::size_t segments, std::size_t notes)
{
    Elf64_Ehdr header = Header();
    header.e_phoff = sizeof header;
    header.e_phnum = static_cast<Elf64_Half>(segments);
    Elf64_Phdr segment = {};
    segment.p_type = PT_NOTE;
    segment.p_offset = sizeof header + segments * sizeof segment;
    segment.p_filesz = notes * sizeof(Elf64_Nhdr);
    std::string bytes;
    Append(bytes, header);
    for (std::size_t i = 0; i < segments; ++i)
    {
        Append(bytes, segment);
    }
    for (std::size_t i = 0; i < notes; ++i)
    {
        Append(bytes, Elf64_Nhdr{0, 0, NT_GNU_ABI_TAG});
    }
    return bytes;
}

/// A module with functions of 16 bytes each, one behind the other from the address 4096 on, and all of one name.
std::string ModuleOfFunctions(std::size_t functions)
{
    Elf64_Ehdr header = Header();
    header.e_shoff = sizeof header;
    header.e_shnum = 2;
    Elf64_Shdr symbols = {};
    symbols.sh_type = SHT_SYMTAB;
    symbols.sh_link = 1;
    symbols.sh_offset = sizeof header + 2 * sizeof symbols;
    symbols.sh_size = functions * sizeof(Elf64_Sym);
    Elf64_Shdr names = {};
    names.sh_type = SHT_STRTAB;
    names.sh_offset = symbols.sh_offset + symbols.sh_size;
    names.sh_size = 6;
    std::string bytes;
    Append(bytes, header);
    Append(bytes, symbols);
    Append(bytes, names);
    for (std::size_t i = 0; i < functions; ++i)
    {
        Append(bytes, Elf64_Sym{1, STT_FUNC, 0, 1, 4096 + i * 16, 16});
    }
    return bytes + std::string("\0name\0", 6);
}

TEST(LinuxCrashReaders, FindTheFunctionAtAnAddress)
{
    ScratchFolder const folder;
    std::string const path = folder.Write("module", ModuleOfFunctions(300)).string();
    ElfFile const file(path.c_str());
    kv::platform::SymbolName symbol;
    ASSERT_TRUE(file.FindSymbol(4096 + 299 * 16 + 5, symbol));
    EXPECT_STREQ(symbol.name, "name");
    EXPECT_EQ(symbol.offset, 5u);
    EXPECT_FALSE(file.FindSymbol(4095, symbol));
    EXPECT_FALSE(file.FindSymbol(4096 + 300 * 16, symbol));
}

TEST(LinuxCrashReaders, TakeTimeThatGrowsWithTheModuleAndNoFaster)
{
    ScratchFolder const folder;
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        4096, 1 << 17,
        [&](std::size_t size) { return folder.Write("f" + std::to_string(size), ModuleOfFunctions(size)).string(); },
        [](std::string const & path)
        {
            kv::platform::SymbolName symbol;
            EXPECT_TRUE(ElfFile(path.c_str()).FindSymbol(4096, symbol));
        }));
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        250, 1000,
        [&](std::size_t size) { return folder.Write("n" + std::to_string(size), ModuleOfNotes(size, size)).string(); },
        [](std::string const & path)
        {
            unsigned char build[32];
            EXPECT_EQ(ElfFile(path.c_str()).BuildId(build, sizeof build), 0u);
        }));
}

TEST(LinuxCrashReaders, TakeTimeThatGrowsWithTheListOfModulesAndNoFaster)
{
    ScratchFolder const folder;
    EXPECT_TRUE(kv::test::GrowsNearLinearly(
        500, 1 << 15,
        [&](std::size_t size)
        {
            std::string list;
            for (std::size_t i = 0; i < size; ++i)
            {
                list += std::to_string(1000 + i) + "-" + std::to_string(1001 + i) + " r-xp 0 08:01 7 /lib/" +
                    std::to_string(i) + "\n";
            }
            return folder.Write("m" + std::to_string(size), list).string();
        },
        [](std::string const & path)
        {
            auto const modules = std::make_unique<ModuleTable>();
            modules->Fill(path.c_str());
            EXPECT_EQ(modules->Count(), 384u);
        }));
}

TEST(LinuxCrashReaders, KeepModulesWithCodeAndTheirWholeRange)
{
    ScratchFolder const folder;
    std::string const list = "1000-2000 r--p 0 08:01 7 /lib/a.so\n2000-3000 r-xp 0 08:01 7 /lib/a.so\n"
                             "3000-4000 r--p 0 08:01 8 /usr/share/data\nnonsense\n-\n5000-6000 r-xp 0 0:0 0 [vdso]\n"
                             "6000-7000 r-xp 0 08:01 9 /" +
        std::string(9000, 'p') + "\n8000-9000 rw-p 0 0:0 0 \n";
    auto const modules = std::make_unique<ModuleTable>();
    modules->Fill(folder.Write("maps", list).string().c_str());
    ASSERT_EQ(modules->Count(), 3u);
    EXPECT_STREQ((*modules)[0].path, "/lib/a.so");
    EXPECT_EQ((*modules)[0].low, 0x1000u);
    EXPECT_EQ((*modules)[0].high, 0x3000u);
    EXPECT_EQ(modules->Find(0x2FFF), &(*modules)[0]);
    EXPECT_EQ(modules->Find(0x3000), nullptr);
    EXPECT_EQ(std::strlen((*modules)[2].path), 510u);
    EXPECT_EQ(modules->LeftOut(), 0u);
}

} // namespace

#endif
