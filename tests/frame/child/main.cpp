// What the tests of the frame need a process of its own for: frame_child SCENARIO [ARGUMENT...]

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include <kvcore/files/FileStreams.h>
#include <kvcore/frame/ConsoleApplication.h>
#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/SEHException.h>
#include <kvcore/frame/SysInfo.h>
#include <kvcore/library/StartRecord.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/FaultKinds.h>
#include <support/PlatformDefault.h>

#include "../DiagnosticsOfTest.h"
#include "BusyLog.h"

namespace
{

constexpr int linesBeforeCrash = 5000;

/// Dies in the middle of logging.
int LogAndAbort(char const * file)
{
    KVLogFile & log = KVLogFile::Object();
    log.SetFilename(kv::platform::PathFromNative(file).c_str());
    for (int i = 0; i < linesBeforeCrash; ++i)
    {
        log.AddFormattedLine(TEXT("line %i of a process that dies"), i);
    }
    std::abort();
}

/// Dies of a fault in the middle of logging, outside of any scope that would translate it.
int LogAndFault(char const * file, void (*provoke)(), bool afterScope)
{
    kv::test::HaveThePlatformsDefault();
    if (afterScope)
    {
        SEHTryCatchEnabler const scope(TEXT("over"));
    }
    KVLogFile & log = KVLogFile::Object();
    log.SetFilename(kv::platform::PathFromNative(file).c_str());
    for (int i = 0; i < linesBeforeCrash; ++i)
    {
        log.AddFormattedLine(TEXT("line %i of a process that faults"), i);
    }
    provoke();
    return 0; // which the test takes for no crash
}

/// Cannot open the log of a process that runs; its own lines go nowhere.
int LogToAnothersFile(char const * file)
{
    KVLogFile & log = KVLogFile::Object();
    try
    {
        log.SetFilename(kv::platform::PathFromNative(file).c_str());
    }
    catch (BasicFileStream::Exception const & exception)
    {
        log.AddLine(TEXT("lost"));
        return exception.error == ERROR_SHARING_VIOLATION && log.GetFilename().empty() ? 0 : 3;
    }
    return 4;
}

/// Leaves the log open, so that the end of the process has to close it.
int LogAndLeave(char const * file)
{
    KVLogFile & log = KVLogFile::Object();
    log.SetFilename(kv::platform::PathFromNative(file).c_str());
    for (int i = 0; i < linesBeforeCrash; ++i)
    {
        log.AddFormattedLine(TEXT("line %i of a process that ends"), i);
    }
    return 0;
}

/// Asks for the version of DirectX until it would be found, and says whether the first answer stayed.
int DetectDirectXOnce(char const * file)
{
    using namespace kv::test;
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
    {
        return 3;
    }
    KVLogFile::Object().SetFilename(kv::platform::PathFromNative(file).c_str());
    Diagnostics diagnostics;
    diagnostics.failing = "Initialize";
    RegisteredDiagnostics const registered(diagnostics);
    bool const failed = SysInfo::GetDirectXVersion() == 0;
    int const createdFirst = diagnostics.created;
    diagnostics.failing.clear();
    bool const stayed = SysInfo::GetDirectXVersion() == 0;
    return failed && stayed && createdFirst == 1 && diagnostics.created == 1 ? 0 : 4;
}

std::FILE * stopFile;

/// Writes down how the library's objects go, and logs while they do.
int RecordStop(char const * file)
{
    stopFile = std::fopen(file, "w");
    kv::detail::ObserveStop(
        [](char const * name)
        {
            std::fprintf(stopFile, "%s\n", name);
            std::fflush(stopFile);
            KVLogFile::Object().AddLine(TEXT("late"));
        });
    return 0;
}

/// An application that writes down its course.
class TellingApplication : public ConsoleApplication
{
public:
    explicit TellingApplication(char const * file) : told(file, std::ios::binary) {}

    void OnInit() override
    {
        told << "init ";
    }
    void OnFree() override
    {
        told << "free ";
    }
    bool InitInstance() override;
    void Main() override
    {
        told << "main ";
    }

    std::ofstream told;
};

/// Writes down what it is given, all but the scenario and the file.
class TellingCommandLine : public CommandLine
{
public:
    explicit TellingCommandLine(std::ofstream & file) : told(file) {}

    void BeginParse() override
    {
        CommandLine::BeginParse();
        told << "begin";
        seen = 0;
    }
    void EndParse() override
    {
        told << "end ";
    }

    std::string first;

protected:
    void ParseOption(String const & option) override
    {
        told << '(' << option.Utf8() << ')';
    }
    void ParseNonOption(String const & text) override
    {
        if (++seen > 2)
        {
            first = first.empty() ? text.Utf8() : first;
            told << '[' << text.Utf8() << (text == TEXT("last") ? "!]" : "]");
        }
    }

private:
    std::ofstream & told;
    int seen = 0;
};

bool TellingApplication::InitInstance()
{
    TellingCommandLine commandLine(told);
    ParseCommandLine(commandLine);
    if (commandLine.first == "twice")
    {
        ParseCommandLine(commandLine);
    }
    SetExitCode(7);
    return commandLine.first != "stop";
}

/// What an application that derives nothing understands of its arguments, all but the scenario and the file.
class PlainCommandLine : public CommandLine
{
public:
    void BeginParse() override
    {
        CommandLine::BeginParse();
        seen = 0;
    }

protected:
    void ParseNonOption(String const & text) override
    {
        if (++seen > 2)
        {
            CommandLine::ParseNonOption(text);
        }
    }

private:
    int seen = 0;
};

/// An application that writes down what it has understood.
class ParsingApplication : public ConsoleApplication
{
public:
    explicit ParsingApplication(char const * file) : told(file, std::ios::binary) {}

    bool InitInstance() override
    {
        PlainCommandLine commandLine;
        ParseCommandLine(commandLine);
        Tell(commandLine);
        // What an earlier command line left is gone with the next one.
        commandLine.Parse(TEXT("regserver"), true, false);
        commandLine.Parse(TEXT("unregserver"), true, false);
        commandLine.Parse(TEXT("left.txt"), false, true);
        ParseCommandLine(commandLine);
        Tell(commandLine);
        return true;
    }

private:
    void Tell(CommandLine const & commandLine)
    {
        told << '[' << commandLine.GetDocPath().Utf8() << ']' << (commandLine.IsRegistering() ? " register" : "")
             << (commandLine.IsUnregistering() ? " unregister" : "") << ';';
    }

    std::ofstream told;
};

} // namespace

int main(int argc, char ** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "log-abort") == 0)
    {
        return LogAndAbort(argv[2]);
    }
    if (argc == 3 && std::strcmp(argv[1], "log-fault") == 0)
    {
        return LogAndFault(argv[2], kv::test::ReadThroughNull, false);
    }
    if (argc == 3 && std::strcmp(argv[1], "log-fault-after-scope") == 0)
    {
        return LogAndFault(argv[2], kv::test::ReadThroughNull, true);
    }
    if (argc == 3 && std::strcmp(argv[1], "log-break-point") == 0)
    {
        return LogAndFault(argv[2], kv::test::HitBreakPoint, false);
    }
    if (argc == 3 && std::strcmp(argv[1], "log-leave") == 0)
    {
        return LogAndLeave(argv[2]);
    }
    if (argc == 5 && std::strcmp(argv[1], "log-busily") == 0)
    {
        return LogBusily(argv[2], argv[3], argv[4]);
    }
#ifndef _WIN32
    if (argc == 3 && std::strcmp(argv[1], "log-own-signals") == 0)
    {
        return LogWithOwnSignals(argv[2]);
    }
#endif
    if (argc == 3 && std::strcmp(argv[1], "log-refused") == 0)
    {
        return LogToAnothersFile(argv[2]);
    }
    if (argc == 3 && std::strcmp(argv[1], "record-stop") == 0)
    {
        return RecordStop(argv[2]);
    }
    if (argc == 3 && std::strcmp(argv[1], "directx-once") == 0)
    {
        return DetectDirectXOnce(argv[2]);
    }
    if (argc >= 3 && std::strcmp(argv[1], "application") == 0)
    {
        TellingApplication application(argv[2] + std::strlen("told="));
        return KVRunConsoleApplication(application);
    }
    if (argc >= 3 && std::strcmp(argv[1], "parse") == 0)
    {
        ParsingApplication application(argv[2] + std::strlen("told="));
        return KVRunConsoleApplication(application);
    }
    std::cerr << "frame_child: unknown scenario\n";
    return 2;
}
