#include <set>

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Commands.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Storyboard.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/files/File.h>
#include <kvcore/frame/ModuleBase.h>
#include <kvcore/platform/win32.h>
#include <support/ChildProgram.h>
#include <support/ScratchFolder.h>
#include <support/ToolConsole.h>

// The program as an application: its texts in two languages, its log, its threads, and the faults that it survives.

namespace Storyboard
{

namespace
{

using kv::test::ToolResult;

int RunEnglish(std::vector<std::string> const & arguments, kv::tools::Console & console)
{
    return RunStoryboard(arguments, console);
}

int RunGerman(std::vector<std::string> const & arguments, kv::tools::Console & console)
{
    return RunStoryboard(arguments, console, {}, german);
}

bool Contains(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

/// The language file as a module, for as long as a test looks into it.
class LanguageFile
{
public:
    LanguageFile() : module(LoadLibraryW(Path().c_str())) {}
    ~LanguageFile()
    {
        FreeLibrary(module);
    }
    LanguageFile(LanguageFile const &) = delete;
    LanguageFile & operator=(LanguageFile const &) = delete;

    static String Path()
    {
        String const program = ModuleBase::GetPath(GetModuleHandleW(nullptr));
        return File::MakePath(File::GetDirname(program), TEXT("storyboard_de.lng"));
    }

    HINSTANCE const module;
};

/// The places in a text where something is put in, in any order. A doubled percent sign is one of them, too.
std::multiset<std::string> Places(std::string const & text)
{
    std::multiset<std::string> places;
    for (std::size_t i = text.find('%'); i < text.size() - 1 && i != std::string::npos; i = text.find('%', i + 2))
    {
        places.insert(text.substr(i, 2));
    }
    return places;
}

/// A folder of a few sources.
class StoryboardApplication : public testing::Test
{
protected:
    StoryboardApplication() : folder(StoredName(scratch / "media")), file(StoredName(scratch / "a.story"))
    {
        for (int i = 0; i != 20; ++i)
        {
            scratch.Write("media/" + std::to_string(i) + ".txt", std::string(std::size_t(i) * 10'000, 'x'));
        }
        scratch.Write("media/more/9.txt", "another");
    }

    ScratchFolder const scratch;
    std::string const folder;
    std::string const file;
};

} // namespace

TEST(StoryboardTexts, AreThereInBothLanguagesWithTheSamePlaces)
{
    LanguageFile const language;
    ASSERT_NE(language.module, nullptr);
    for (unsigned id = 1; id != TEXT_END; ++id)
    {
        std::string const own = ModuleBase::LoadStringW(GetModuleHandleW(nullptr), id).Utf8();
        std::string const other = ModuleBase::LoadStringW(language.module, id).Utf8();
        EXPECT_NE(own, "") << id;
        EXPECT_NE(other, "") << id;
        EXPECT_EQ(Places(own), Places(other)) << own << '\n' << other;
    }
    EXPECT_TRUE(ModuleBase::LoadStringW(GetModuleHandleW(nullptr), TEXT_END).empty());
    EXPECT_TRUE(ModuleBase::LoadStringW(language.module, TEXT_END).empty());
}

// Or the file is refused, with a message for the user.
TEST(StoryboardTexts, HaveTheProgramsVersion)
{
    DWORD own[4];
    DWORD other[4];
    ModuleBase::GetModuleVersion(GetModuleHandleW(nullptr), own[0], own[1], own[2], own[3]);
    ModuleBase::GetModuleVersion(LanguageFile::Path(), other[0], other[1], other[2], other[3]);
    EXPECT_EQ(own[0], other[0]);
    EXPECT_EQ(own[1], other[1]);
    std::string const version =
        std::to_string(own[0] >> 16) + '.' + std::to_string(own[0] & 0xFFFF) + '.' + std::to_string(own[1] >> 16);
    EXPECT_EQ(kv::test::RunTool(RunEnglish, {"--version"}).output, "storyboard " + version + '\n');
}

TEST_F(StoryboardApplication, SpeaksTheUsersLanguageOrTheOneThatIsNamed)
{
    struct
    {
        kv::tools::ProgramFunction run;
        std::vector<std::string> options;
        char const * made;
    } const cases[] = {
        {RunEnglish, {}, "Made a project of 21 files in 2 folders: 21 sources of different content, 1.8 MiB.\n"},
        {RunGerman, {}, "Projekt aus 21 Dateien in 2 Ordner erstellt: 21 Quellen mit verschiedenem Inhalt, 1,8 MiB.\n"},
        {RunEnglish, {"--language", "de"}, "Projekt aus "},
        {RunEnglish, {"--language=de"}, "Projekt aus "},
        {RunGerman, {"--language", "en"}, "Made a project "},
        {RunEnglish, {}, "Made a project "}, // what one run chose is nothing to the next
    };
    for (auto const & one : cases)
    {
        std::vector<std::string> arguments = one.options;
        arguments.insert(arguments.end(), {"make", folder, file});
        ToolResult const run = kv::test::RunTool(one.run, arguments);
        EXPECT_EQ(run.code, 0) << run.error;
        EXPECT_TRUE(run.output.starts_with(one.made)) << run.output;
    }
}

TEST_F(StoryboardApplication, OptionsOfTheProgramMayFollowTheCommand)
{
    ToolResult const run = kv::test::RunTool(RunEnglish, {"make", folder, file, "--language", "de"});
    EXPECT_TRUE(run.output.starts_with("Projekt aus ")) << run.output << run.error;
}

TEST(StoryboardLanguage, HelpIsInIt)
{
    std::string const help = kv::test::RunTool(RunGerman, {"make", "--help"}).output;
    for (char const * const part :
         {"Aufruf: storyboard make [OPTIONEN]", "Argumente:", "Optionen:", "Diese Hilfe", "NÖTIG"})
    {
        EXPECT_TRUE(Contains(help, part)) << part << '\n' << help;
    }
    for (char const * const part : {"Usage", "Options", "OPTIONS", "Positionals", "Print", "REQUIRED"})
    {
        EXPECT_FALSE(Contains(help, part)) << part << '\n' << help;
    }
    std::string const all = kv::test::RunTool(RunGerman, {"--help"}).output;
    for (char const * const part : {"Befehle:", "Exit-Codes:", "  10  verify: Quellen", "[OPTIONEN] BEFEHL"})
    {
        EXPECT_TRUE(Contains(all, part)) << part << '\n' << all;
    }
}

TEST(StoryboardLanguage, MistakesAreToldInIt)
{
    struct
    {
        std::vector<std::string> arguments;
        char const * told;
    } const cases[] = {
        {{}, "ein Befehl fehlt: "},
        {{"paint"}, "diesen Befehl gibt es nicht: paint"},
        {{"--color", "show", "x"}, "diese Option gibt es nicht: --color"},
        {{"show", "--color", "x"}, "diese Option gibt es nicht: --color"},
        {{"show"}, "FILE fehlt"},
        {{"make", "x"}, "FILE fehlt"},
        {{"show", "x", "y"}, "nicht erwartet: y"},
        {{"show", "x", "--width"}, "--width braucht einen Wert"},
        {{"show", "x", "--width", "wide"}, "--width ist eine Zahl von 0 bis 100000"},
        {{"make", "x", "y", "--jobs", "0"}, "--jobs ist eine Zahl von 1 bis 64"},
        {{"make", "x", "y", "--jobs", "65"}, "--jobs ist eine Zahl von 1 bis 64"},
    };
    for (auto const & one : cases)
    {
        ToolResult const run = kv::test::RunTool(RunGerman, one.arguments);
        EXPECT_EQ(run.code, kv::tools::ExitUsage) << one.told;
        EXPECT_EQ(run.output, "");
        EXPECT_TRUE(run.error.starts_with(std::string("storyboard: ") + one.told)) << run.error;
    }
}

TEST(StoryboardLanguage, UnknownOnesAreRefused)
{
    ToolResult const run = kv::test::RunTool(RunEnglish, {"--language", "fr", "show", "x"});
    EXPECT_EQ(run.code, kv::tools::ExitUsage);
    EXPECT_EQ(run.error, "storyboard: no language is called fr; there are en and de\n");
}

TEST_F(StoryboardApplication, AnyNumberOfThreadsMakesTheSameProject)
{
    std::string first;
    for (char const * const jobs : {"1", "2", "7", "64"})
    {
        ASSERT_EQ(kv::test::RunTool(RunEnglish, {"make", "-q", "--jobs", jobs, folder, file}).code, 0);
        first = first.empty() ? scratch.Read("a.story") : first;
        EXPECT_EQ(scratch.Read("a.story"), first) << jobs;
        EXPECT_EQ(kv::test::RunTool(RunEnglish, {"verify", "-q", "--jobs", jobs, file, folder}).code, 0);
    }
}

TEST_F(StoryboardApplication, FaultLeavesOutOneSourceAndNoOther)
{
    for (char const * const jobs : {"1", "4"})
    {
        ToolResult const run =
            kv::test::RunTool(RunEnglish, {"make", "--jobs", jobs, "--fault-on", "9.txt", folder, file});
        EXPECT_EQ(run.code, ExitIncomplete);
        EXPECT_TRUE(Contains(run.output, "Made a project of 19 files")) << run.output;
        for (char const * const path : {"9.txt", "more/9.txt"})
        {
            std::string const told =
                std::string("storyboard: ") + path + ": cannot be read: a fault while it was read: Access violation\n";
            EXPECT_TRUE(Contains(run.error, told)) << run.error;
        }
    }
}

TEST_F(StoryboardApplication, FaultWhileVerifyingIsAnUnreadSource)
{
    ASSERT_EQ(kv::test::RunTool(RunEnglish, {"make", "-q", folder, file}).code, 0);
    ToolResult const run = kv::test::RunTool(RunGerman, {"verify", "-q", "--fault-on", "7.txt", file, folder});
    EXPECT_EQ(run.code, kv::tools::ExitIo);
    EXPECT_EQ(
        run.output,
        "unlesbar  7.txt: ein Fehler der Maschine beim Lesen: Access violation\n"
        "21 Dateien im Projekt: 20 unverändert, 0 geändert, 0 fehlend, 1 nicht lesbar; 0 neu auf der Platte\n");
}

TEST_F(StoryboardApplication, LogTellsWhatTheRunDid)
{
    std::string const log = StoredName(scratch / "run.log");
    int const code = RunChildProgram(
        "storyboard", {"--log", log, "--language", "de", "make", "-q", "-j2", "--fault-on", "3.txt", folder, file});
    EXPECT_EQ(code, ExitIncomplete);
    std::string const lines = scratch.Read("run.log");
    char const * const parts[] = {
        "] storyboard storyboard 0.1.0 --log ",
        "] storyboard   Language de\r\n",
        "] storyboard   Found 21 files in ",
        "] storyboard   Reading 21 files on 2 threads\r\n",
        "] storyboard     Reading 3.txt\r\n",
        "] storyboard     Fault at 3.txt: Fatal exception 'Access violation' caused by module '",
        "] storyboard     Read more/9.txt: 7 bytes, sum ",
        "] storyboard   Saved ",
        "] storyboard Ended with exit code 5\r\n",
    };
    for (char const * const part : parts)
    {
        EXPECT_TRUE(Contains(lines, part)) << part << "\nin\n" << lines;
    }
}

TEST_F(StoryboardApplication, LogThatCannotBeWrittenEndsTheRun)
{
    std::string const log = StoredName(scratch / "nowhere" / "run.log");
    ToolResult const run = kv::test::RunTool(RunEnglish, {"--log", log, "make", folder, file});
    EXPECT_EQ(run.code, kv::tools::ExitIo);
    EXPECT_TRUE(run.error.starts_with("storyboard: cannot write the log ")) << run.error;
    EXPECT_FALSE(std::filesystem::exists(scratch / "a.story"));
}

} // namespace Storyboard
