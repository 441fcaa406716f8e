#include <kvcore/frame/ApplicationBase.h>

#include <kvcore/frame/detail/CrashReporter.h>
#include <kvcore/platform/win32.h>

ApplicationBase::ApplicationBase() : exitCode(0)
{
    kv::detail::CrashReporter::Create();
}

ApplicationBase::~ApplicationBase()
{
    kv::detail::CrashReporter::End();
}

int ApplicationBase::SetExitCode(int code)
{
    return exitCode = code;
}

int ApplicationBase::GetExitCode() const
{
    return exitCode;
}

bool ApplicationBase::InitInstance()
{
    return true;
}

void ApplicationBase::Main() {}

void ApplicationBase::ParseCommandLine(CommandLine & commandLine) const
{
    int count = 0;
    LPWSTR * const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    commandLine.BeginParse();
    for (int i = 1; i < count; ++i)
    {
        String const text(arguments[i]);
        bool const isOption = text[0] == '-' || text[0] == '/';
        commandLine.Parse(isOption ? String(text.substr(1)) : text, isOption, i == count - 1);
    }
    commandLine.EndParse();
    LocalFree(arguments);
}
