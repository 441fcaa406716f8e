#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/fileapi.h>
#include <kvcore/platform/include/tlhelp32.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/files/Handles.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/Win32Path.h>

#include "Modules.h"

using namespace kv::platform;

namespace
{

struct ListedModule
{
    std::uintptr_t base;
    std::uintptr_t end;
    WString path;
};

class ModuleList final : public KernelObject
{
public:
    static constexpr ObjectKind kind = ObjectKind::ModuleList;

    ModuleList(DWORD ofProcess, std::vector<ListedModule> found) noexcept
        : KernelObject(kind), process(ofProcess), modules(std::move(found))
    {
    }

    DWORD const process;
    std::vector<ListedModule> const modules;
    std::atomic<std::size_t> next{0};
};

/// What the kernel says of one file in a process's memory.
struct MappedFileRange
{
    std::uintptr_t base;
    std::uintptr_t end;
    bool fromBeginning;
    bool executable;
};

bool ReadWhole(std::string const & name, std::string & text)
{
    int const descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        return FailWith(errno == ENOENT ? ERROR_INVALID_PARAMETER : ErrorOfErrno(errno));
    }
    char buffer[0x4000];
    ssize_t got = 0;
    while ((got = read(descriptor, buffer, sizeof(buffer))) > 0 || (got < 0 && errno == EINTR))
    {
        text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    int const error = errno;
    close(descriptor);
    return got == 0 || FailErrno(error);
}

/// The blank-separated field at the front of a line, which it is taken off.
std::string_view TakeField(std::string_view & line)
{
    std::size_t const end = std::min(line.find(' '), line.size());
    std::string_view const field = line.substr(0, end);
    line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
    return field;
}

/// A line of the kernel's list that tells of a file.
struct MappedLine
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool executable = false;
    bool fromBeginning = false;
    std::string_view path;
};

/// Takes the next line off the list. Its path is empty where it tells of no file.
MappedLine TakeLine(std::string_view & maps)
{
    std::size_t const lineEnd = std::min(maps.find('\n'), maps.size());
    std::string_view line = maps.substr(0, lineEnd);
    maps.remove_prefix(std::min(lineEnd + 1, maps.size()));
    std::string_view const range = TakeField(line);
    std::string_view const rights = TakeField(line);
    std::string_view const offset = TakeField(line);
    TakeField(line);
    TakeField(line);
    MappedLine taken;
    char const * const last = range.data() + range.size();
    auto const dash = std::from_chars(range.data(), last, taken.begin, 16).ptr;
    bool const isFile = !line.empty() && line.front() == '/' && rights.size() >= 4 && dash != last &&
        std::from_chars(dash + 1, last, taken.end, 16).ec == std::errc();
    if (isFile)
    {
        taken.fromBeginning = offset.find_first_not_of('0') == std::string_view::npos;
        taken.executable = rights[2] == 'x';
        taken.path = line;
    }
    return taken;
}

/// Files that are mapped from their beginning and executable somewhere are modules: what others map to read is not.
std::vector<ListedModule> FindModules(std::string_view maps)
{
    std::map<std::string_view, MappedFileRange> files;
    while (!maps.empty())
    {
        MappedLine const line = TakeLine(maps);
        if (line.path.empty())
        {
            continue;
        }
        auto const [file, isNew] =
            files.try_emplace(line.path, MappedFileRange{line.begin, line.end, line.fromBeginning, line.executable});
        if (!isNew)
        {
            file->second.end = line.end;
            file->second.executable = file->second.executable || line.executable;
        }
    }
    std::vector<ListedModule> modules;
    for (auto const & [path, file] : files)
    {
        if (file.executable && file.fromBeginning)
        {
            modules.push_back({file.base, file.end, Win32PathOf(path.data(), path.size())});
        }
    }
    return modules;
}

/// The program goes first, then all by address.
void Sort(std::vector<ListedModule> & modules, std::string const & process)
{
    char program[4096];
    ssize_t const length = readlink((process + "/exe").c_str(), program, sizeof(program));
    WString const path = length > 0 ? Win32PathOf(program, static_cast<std::size_t>(length)) : WString();
    std::sort(
        modules.begin(), modules.end(),
        [&path](ListedModule const & left, ListedModule const & right)
        {
            bool const leftIsProgram = left.path == path;
            bool const rightIsProgram = right.path == path;
            return leftIsProgram != rightIsProgram ? leftIsProgram : left.base < right.base;
        });
}

BOOL Give(HANDLE snapshot, MODULEENTRY32W * entry, bool first)
{
    auto const list = LookUp<ModuleList>(snapshot);
    if (!list)
    {
        return FALSE;
    }
    if (entry == nullptr || entry->dwSize < sizeof(MODULEENTRY32W))
    {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    std::size_t const at = first ? 0 : list->next.load();
    if (at >= list->modules.size())
    {
        return FailWith(ERROR_NO_MORE_FILES);
    }
    list->next.store(at + 1);
    ListedModule const & module = list->modules[at];
    *entry = MODULEENTRY32W{};
    entry->dwSize = sizeof(MODULEENTRY32W);
    entry->th32ModuleID = 1;
    entry->th32ProcessID = list->process;
    entry->GlblcntUsage = entry->ProccntUsage = 1;
    entry->modBaseAddr = reinterpret_cast<BYTE *>(module.base);
    entry->modBaseSize = static_cast<DWORD>(std::min<std::uintptr_t>(module.end - module.base, 0xFFFFFFFF));
    entry->hModule = reinterpret_cast<HMODULE>(module.base);
    WString const name = module.path.substr(module.path.find_last_of('\\') + 1);
    name.copy(entry->szModule, MAX_MODULE_NAME32);
    module.path.copy(entry->szExePath, MAX_PATH - 1);
    return TRUE;
}

} // namespace

std::string kv::platform::MappedPathAt(std::uintptr_t address)
{
    std::string text;
    std::string_view maps = ReadWhole("/proc/self/maps", text) ? text : std::string_view();
    while (!maps.empty())
    {
        MappedLine const line = TakeLine(maps);
        if (line.begin <= address && address < line.end)
        {
            return std::string(line.path);
        }
    }
    return {};
}

HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD process)
try
{
    DWORD const own = static_cast<DWORD>(getpid());
    DWORD const asked = process != 0 ? process : own;
    if (flags != TH32CS_SNAPMODULE)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::string const folder = "/proc/" + std::to_string(asked);
    std::string maps;
    if (!ReadWhole(folder + "/maps", maps))
    {
        return INVALID_HANDLE_VALUE;
    }
    std::vector<ListedModule> modules = FindModules(maps);
    if (asked == own)
    {
        ForEachMappedModule(
            [&modules](std::uintptr_t base, std::size_t size, WString const & path) {
                modules.push_back({base, base + size, path});
            });
    }
    Sort(modules, folder);
    auto const list = Ref<ModuleList>::Adopt(new ModuleList(asked, std::move(modules)));
    HANDLE const handle = HandleTable::Create(*list, 0);
    return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
}
catch (std::bad_alloc const &)
{
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W * entry)
{
    CheckOutputs(entry);
    return Give(snapshot, entry, true);
}

BOOL WINAPI Module32NextW(HANDLE snapshot, MODULEENTRY32W * entry)
{
    CheckOutputs(entry);
    return Give(snapshot, entry, false);
}
