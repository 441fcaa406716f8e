#include <kvcore/examples/storyboard/Storyboard.h>

#include <cerrno>
#include <exception>
#include <functional>

#include <kvcore/examples/storyboard/Commands.h>
#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Grammar.h>
#include <kvcore/examples/storyboard/RunLog.h>
#include <kvcore/examples/storyboard/Settings.h>
#include <kvcore/files/File.h>
#include <kvcore/frame/ConsoleApplication.h>
#include <kvcore/tools/support/StdioStreams.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace
{

constexpr LANGID primaryLanguageMask = 0x3FF;

/// The frame of the program: its module with its resources, its crash reporter, its exit code.
class Application : public ConsoleApplication
{
public:
    Application(
        std::vector<std::string> const & commandLine, kv::tools::Console & usedConsole, Screen const & usedScreen,
        LANGID usersLanguage)
        : arguments(commandLine), console(usedConsole), screen(usedScreen), language(usersLanguage)
    {
    }

    /// German texts lie in a file of their own, beside the program or where packages put what belongs to it.
    bool GetLanguageDLLName(unsigned short wanted, String & path) override
    {
        if ((wanted & primaryLanguageMask) != (german & primaryLanguageMask))
        {
            return false;
        }
        String const folder = File::GetDirname(path);
        path = File::MakePath(folder, TEXT("storyboard_de.lng"));
        if (!File::FileExists(path))
        {
            path = File::MakePath(File::GetDirname(folder), TEXT("share\\storyboard\\storyboard_de.lng"));
        }
        return true;
    }

    void OnInit() override
    {
        TakeTextsFrom(this);
    }
    void OnFree() override
    {
        TakeTextsFrom(nullptr);
    }

    /// Understands the command line. False if nothing is left to be done.
    bool InitInstance() override
    {
        bool goOn = false;
        SetExitCode(Guarded(
            [&]
            {
                ChooseLanguage();
                goOn = Understand();
                return kv::tools::ExitOk;
            }));
        return goOn;
    }

    void Main() override
    {
        LogBegin();
        int const code = SetExitCode(Guarded([this] { return RunCommand(); }));
        Log(LogRun, "Ended with exit code " + std::to_string(code));
    }

private:
    void ChooseLanguage()
    {
        std::string const named = NamedLanguage(arguments);
        LANGID const wanted = named == "de" ? german : named == "en" ? english : language;
        SetLanguage(wanted, nullptr);
        if (!named.empty() && wanted == german && Text(TEXT_LANGUAGE) != named)
        {
            kv::tools::Complain(console, "storyboard", Text(TEXT_NO_TEXTS, named));
        }
    }

    /// False if the command line asks for nothing but what has been printed then.
    bool Understand()
    {
        try
        {
            request = ParseArguments(arguments);
        }
        catch (Information const & information)
        {
            kv::tools::Print(console.output, std::string_view(information.text));
            return false;
        }
        if (!request.logFile.empty())
        {
            StartLog(request.logFile);
        }
        return true;
    }

    void LogBegin() const
    {
        std::string line = "storyboard " KVCORE_VERSION;
        for (std::string const & argument : arguments)
        {
            line += ' ' + Printable(argument);
        }
        Log(LogRun, line);
        Log(LogStep, "Language " + Text(TEXT_LANGUAGE));
    }

    int RunCommand() const
    {
        String const path = SettingsPath(request.settingsFile);
        if (request.command == "settings")
        {
            return RunSettings(console, path, request.setting, request.value);
        }
        Settings const kept = ReadSettings(path);
        bool const quiet = request.quiet.value_or(kept.quiet);
        Context const context{
            console, screen, quiet ? Progress::Loudness::Quiet : Progress::Loudness::Normal,
            ReadingOptions{request.jobs, request.faultName}};
        std::filesystem::path const file = NativePath(request.file);
        std::filesystem::path const folder = NativePath(request.folder);
        if (request.command == "make")
        {
            return Make(context, folder, file);
        }
        if (request.command == "verify")
        {
            return Verify(context, file, folder);
        }
        std::filesystem::path const description = NativePath(request.description);
        std::filesystem::path const output = NativePath(request.output);
        if (request.command == "describe")
        {
            return WriteXml(context, file, output);
        }
        if (request.command == "check")
        {
            return Check(context, description);
        }
        if (request.command == "restore")
        {
            return Restore(description, file);
        }
        if (request.command == "page")
        {
            return WritePage(context, file, output);
        }
        int const width = request.width.value_or(kept.width);
        Detail const detail = request.summary.value_or(kept.summary) ? Detail::TotalsOnly : Detail::Everything;
        std::size_t const columns = static_cast<std::size_t>(width >= 0 ? width : screen.outputWidth);
        return request.command == "last" ? ShowLast(context, detail, columns) : Show(context, file, detail, columns);
    }

    int Fail(int code, std::string const & message)
    {
        Log(LogStep, "Failed: " + message);
        kv::tools::Complain(console, "storyboard", message);
        return code;
    }

    /// Calls `function` for an exit code, and makes one of every exception.
    int Guarded(std::function<int()> const & function)
    {
        try
        {
            return function();
        }
        catch (Failure const & failure)
        {
            return Fail(failure.exitCode, failure.message);
        }
        catch (kv::tools::IoException const & failure)
        {
            return failure.error == EPIPE
                ? kv::tools::ExitClosedPipe
                : Fail(kv::tools::ExitIo, Text(TEXT_CANNOT_WRITE_OUTPUT, failure.text.Utf8()));
        }
        catch (StreamBase::Exception const & failure)
        {
            return Fail(kv::tools::ExitIo, Text(TEXT_CANNOT_WRITE_OUTPUT, failure.text.Utf8()));
        }
        catch (std::exception const & failure)
        {
            return Fail(kv::tools::ExitIo, Text(TEXT_CANNOT_GO_ON, failure.what()));
        }
    }

    std::vector<std::string> const & arguments;
    kv::tools::Console & console;
    Screen const & screen;
    LANGID const language;
    Request request;
};

} // namespace

int RunStoryboard(
    std::vector<std::string> const & arguments, kv::tools::Console & console, Screen const & screen, LANGID language)
{
    Application application(arguments, console, screen, language);
    return KVRunConsoleApplication(application);
}

} // namespace Storyboard
