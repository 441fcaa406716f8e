#include <support/ChildProgram.h>

#include <stdexcept>

#include <kvcore/core/String.h>
#include <kvcore/files/File.h>
#include <kvcore/platform/win32.h>

namespace
{

/// As the program's start takes it apart again.
String Quoted(String const & argument)
{
    String quoted = TEXT("\"");
    std::size_t backslashes = 0;
    for (WCHAR const c : argument)
    {
        quoted.append(c == '"' ? backslashes + 1 : 0, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        quoted.push_back(c);
    }
    quoted.append(backslashes, '\\');
    quoted.push_back('"');
    return quoted;
}

} // namespace

int RunChildProgram(std::string const & name, std::vector<std::string> const & arguments)
{
    WCHAR own[MAX_PATH];
    GetModuleFileNameW(nullptr, own, MAX_PATH);
    String command = TEXT("\"") + File::GetDirname(own) + TEXT("\\") + String::FromUtf8(name) + TEXT(".exe\"");
    for (std::string const & argument : arguments)
    {
        command += TEXT(" ") + Quoted(String::FromUtf8(argument));
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    {
        throw std::runtime_error("cannot run " + name);
    }
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return int(code);
}
