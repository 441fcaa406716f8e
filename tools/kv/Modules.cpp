#include <kvcore/tools/kv/Modules.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

/// The snapshot's handle, closed at the end.
class Snapshot
{
public:
    explicit Snapshot(DWORD process) : handle(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process)) {}
    Snapshot(Snapshot const &) = delete;
    Snapshot & operator=(Snapshot const &) = delete;
    ~Snapshot()
    {
        if (IsOpen())
        {
            CloseHandle(handle);
        }
    }
    bool IsOpen() const
    {
        return handle != INVALID_HANDLE_VALUE;
    }
    operator HANDLE() const
    {
        return handle;
    }

private:
    HANDLE handle;
};

/// 0 for this process.
DWORD ProcessNumber(std::string const & text)
{
    DWORD number = 0;
    if (text == "self")
    {
        return 0;
    }
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0)
    {
        throw UsageError("unknown process '" + text + "'; give a process number or 'self'");
    }
    return number;
}

/// The product version of a file, or "-".
std::string VersionOf(WCHAR const * path)
{
    DWORD zero = 0;
    DWORD const size = GetFileVersionInfoSizeW(path, &zero);
    std::vector<std::uint32_t> block(size / 4 + 1);
    void * value = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(path, 0, size, block.data()) ||
        !VerQueryValueW(block.data(), TEXT("\\"), &value, &length) || length < sizeof(VS_FIXEDFILEINFO))
    {
        return "-";
    }
    VS_FIXEDFILEINFO fixed;
    std::memcpy(&fixed, value, sizeof(fixed));
    return std::to_string(fixed.dwProductVersionMS >> 16) + "." + std::to_string(fixed.dwProductVersionMS & 0xFFFF) +
        "." + std::to_string(fixed.dwProductVersionLS >> 16) + "." + std::to_string(fixed.dwProductVersionLS & 0xFFFF);
}

} // namespace

int ListModules(std::string const & process, Console & console)
{
    Snapshot const snapshot(ProcessNumber(process));
    if (!snapshot.IsOpen())
    {
        DWORD const error = GetLastError();
        Complain(
            console, "kv modules",
            "process " + process + ": " +
                (error == ERROR_INVALID_PARAMETER ? "there is none of this number"
                                                  : String::FromError(static_cast<LONG>(error)).Utf8()));
        return ExitFailed;
    }
    NamedOutput output("-", console);
    PrintLine(output, std::string_view("ADDRESS             SIZE        VERSION         FILE"));
    MODULEENTRY32W entry;
    entry.dwSize = sizeof(entry);
    for (BOOL there = Module32FirstW(snapshot, &entry); there; there = Module32NextW(snapshot, &entry))
    {
        char line[80];
        std::snprintf(
            line, sizeof(line), "0x%016llx  %-10s  %-14s  ",
            static_cast<unsigned long long>(reinterpret_cast<ULONG_PTR>(entry.modBaseAddr)),
            HumanSize(entry.modBaseSize).c_str(), VersionOf(entry.szExePath).c_str());
        PrintLine(output, line + Printable(ShownPath(String(entry.szExePath))));
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
