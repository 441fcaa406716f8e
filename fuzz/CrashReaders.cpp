// What the crash reporter reads, and what is read of its reports: module files, the kernel's list of modules, and lines
// with linker's names. None of it may be trusted: modules are replaced on the disk, and reports come by mail.

#include <memory>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <kvcore/platform/faultrep/ElfFile.h>
#include <kvcore/platform/faultrep/ModuleTable.h>
#include <kvcore/platform/faultrep/ReportText.h>
#include <kvcore/tools/kv/CrashLines.h>

#include "Fuzz.h"

namespace
{

using namespace kv::platform;

/// A file in memory with a path.
class MemoryFile
{
public:
    explicit MemoryFile(std::string const & content) : file(memfd_create("fuzz", 0))
    {
        std::size_t done = 0;
        while (done < content.size())
        {
            ssize_t const written = write(file, content.data() + done, content.size() - done);
            fuzz::Check(written > 0, "no memory for a file");
            done += static_cast<std::size_t>(written);
        }
        path = "/proc/self/fd/" + std::to_string(file);
    }
    MemoryFile(MemoryFile const &) = delete;
    MemoryFile & operator=(MemoryFile const &) = delete;
    ~MemoryFile()
    {
        close(file);
    }
    int Descriptor() const
    {
        return file;
    }
    char const * Path() const
    {
        return path.c_str();
    }

private:
    int file;
    std::string path;
};

void ReadModule(std::uint64_t address, std::string const & content)
{
    MemoryFile const bytes(content);
    ElfFile const module(bytes.Path());
    std::uint64_t first = 1;
    if (module.FirstAddress(first))
    {
        fuzz::Check((first & 0xFFF) == 0, "a segment that begins within a page");
    }
    SymbolName symbol;
    if (module.FindSymbol(address, symbol))
    {
        std::size_t const length = strnlen(symbol.name, sizeof symbol.name);
        fuzz::Check(length > 0 && length < sizeof symbol.name, "a name without an end");
        fuzz::Check(symbol.offset <= address, "a function behind the address");
    }
    unsigned char build[32];
    fuzz::Check(module.BuildId(build, sizeof build) <= sizeof build, "more bytes than there is room for");
}

void ReadModuleList(std::uint64_t address, std::string const & content)
{
    MemoryFile const bytes(content);
    auto const modules = std::make_unique<ModuleTable>();
    modules->Fill(bytes.Path());
    for (std::size_t i = 0; i < modules->Count(); ++i)
    {
        LoadedModule const & module = (*modules)[i];
        std::size_t const length = strnlen(module.path, sizeof module.path);
        fuzz::Check(length > 0 && length < sizeof module.path, "a path without an end");
        fuzz::Check(module.path[0] == '/' || module.path == std::string("[vdso]"), "no module");
    }
    if (LoadedModule const * const found = modules->Find(address))
    {
        fuzz::Check(found->low <= address && address < found->high, "a module elsewhere");
    }
}

void ReadLine(std::string const & line)
{
    std::string const shown = kv::tools::WithSourceNames(line);
    fuzz::Check(shown.size() <= line.size() + 4 * kv::tools::mostSourceNames, "names without a bound");
}

/// What comes from elsewhere goes to a report as one line.
void WriteForeign(std::string const & text)
{
    MemoryFile const file(std::string{});
    ReportText report(file.Descriptor());
    report.PutForeign(text.data(), text.size());
    report.Flush();
    std::string written(text.size(), 0);
    fuzz::Check(report.IsWhole() && report.HasAny() == !text.empty(), "a report that is not written");
    fuzz::Check(
        pread(file.Descriptor(), written.data(), written.size(), 0) == static_cast<ssize_t>(text.size()),
        "a text of another length");
    for (char const c : written)
    {
        fuzz::Check(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F, "a control character");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const kind = input.Byte();
    std::uint64_t const address = input.DWord();
    std::string const content = input.Rest();
    switch (kind % 4)
    {
    case 0:
        ReadModule(address, content);
        break;
    case 1:
        ReadModuleList(address, content);
        break;
    case 2:
        ReadLine(content);
        break;
    default:
        WriteForeign(content);
        break;
    }
    return 0;
}
