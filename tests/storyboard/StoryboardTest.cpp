#include "Samples.h"

#include <gtest/gtest.h>

#include <kvcore/examples/storyboard/Commands.h>
#include <kvcore/examples/storyboard/Display.h>
#include <kvcore/examples/storyboard/FolderWalk.h>
#include <kvcore/examples/storyboard/Storyboard.h>
#include <support/ScratchFolder.h>

namespace Storyboard
{

namespace fs = std::filesystem;

namespace
{

/// What one run of the program came to: its exit code and what it printed.
struct Result
{
    explicit Result(std::vector<std::string> const & arguments, Screen const & screen = {})
    {
        MemorySource input("");
        MemoryOutputStream outputStream;
        MemoryOutputStream errorStream;
        kv::tools::Console console{input, outputStream, errorStream};
        code = RunStoryboard(arguments, console, screen);
        output = outputStream.GetContent();
        error = errorStream.GetContent();
    }

    int code;
    std::string output;
    std::string error;
};

bool Contains(std::string const & text, std::string const & part)
{
    return text.find(part) != std::string::npos;
}

/// The line of a text that contains `part`, its blanks reduced to one each.
std::string LineWith(std::string const & text, std::string const & part)
{
    std::size_t const at = text.find(part);
    if (at == std::string::npos)
    {
        return "no line has \"" + part + "\" in:\n" + text;
    }
    std::size_t const start = text.rfind('\n', at) + 1;
    std::string line;
    for (std::size_t i = start; i < text.size() && text[i] != '\n'; ++i)
    {
        if (text[i] != ' ' || (!line.empty() && line.back() != ' '))
        {
            line += text[i];
        }
    }
    return line;
}

/// A folder with a few sources in it, and a project of it beside it.
class StoryboardProgram : public testing::Test
{
protected:
    StoryboardProgram() : folder(StoredName(scratch / "media")), file(StoredName(scratch / "a.story"))
    {
        scratch.Write("media/one.txt", "the first");
        scratch.Write("media/two.txt", "the second");
        scratch.Write("media/more/copy of one.txt", "the first");
        scratch.Write("media/more/still.gif", FromHex("47 49 46 38 39 61 40 01 C8 00 80 00 00"));
    }

    void MakeProject()
    {
        ASSERT_EQ(Result({"make", "-q", folder, file}).code, 0);
    }
    Result Verified() const
    {
        return Result({"verify", "-q", file, folder});
    }

    ScratchFolder const scratch;
    std::string const folder;
    std::string const file;
};

} // namespace

TEST_F(StoryboardProgram, MakesAProject)
{
    Result const run({"make", folder, file});
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(Contains(run.output, "Made a project of 4 files in 2 folders: 3 sources of different content, 32 B.\n"))
        << run.output;
    EXPECT_TRUE(Contains(run.error, "Reading: 100 %, 4 of 4 files\n")) << run.error;
    EXPECT_EQ(fs::file_size(scratch / "a.story"), scratch.Read("a.story").size());
}

TEST_F(StoryboardProgram, QuietSaysNothing)
{
    Result const made({"make", "--quiet", folder, file});
    EXPECT_EQ(made.output + made.error, "");
    EXPECT_EQ(made.code, 0);
    EXPECT_EQ(Result({"verify", "-q", file, folder}).error, "");
}

TEST_F(StoryboardProgram, ProgressOnATerminalIsOneLineThatIsCleared)
{
    Screen screen;
    screen.errorWidth = 40;
    Result const run({"make", folder, file}, screen);
    EXPECT_FALSE(Contains(run.error, "\n")) << run.error;
    EXPECT_EQ(run.error.front(), '\r');
    EXPECT_TRUE(Contains(run.error, " 1 of 4 files")) << run.error;
    EXPECT_EQ(run.error.substr(run.error.size() - 41), '\r' + std::string(39, ' ') + '\r');
}

TEST_F(StoryboardProgram, MakesTheSameFileOfTheSameFolder)
{
    MakeProject();
    std::string const first = scratch.Read("a.story");
    MakeProject();
    EXPECT_EQ(scratch.Read("a.story"), first);
}

TEST_F(StoryboardProgram, MakesAProjectOfAnEmptyFolder)
{
    fs::create_directory(scratch / "nothing");
    Result const made({"make", StoredName(scratch / "nothing"), file});
    EXPECT_EQ(made.code, 0);
    EXPECT_TRUE(Contains(made.output, "Made a project of 0 files in 0 folders")) << made.output;
    Result const shown({"show", file});
    EXPECT_EQ(shown.code, 0);
    EXPECT_TRUE(Contains(shown.output, "Project \"nothing\"\n")) << shown.output;
    EXPECT_EQ(LineWith(shown.output, "Contents"), "Contents 0 folders, 0 collections, 0 clips");
    EXPECT_EQ(Result({"verify", file, StoredName(scratch / "nothing")}).code, 0);
}

TEST_F(StoryboardProgram, LeavesTheProjectFileOutOfItself)
{
    std::string const inside = StoredName(scratch / "media/a.story");
    ASSERT_EQ(Result({"make", "-q", folder, inside}).code, 0);
    Result const again({"make", folder, inside});
    EXPECT_TRUE(Contains(again.output, "project of 4 files")) << again.output;
    EXPECT_TRUE(Contains(again.output, "Left out: 1 entry, the project file itself.\n")) << again.output;
    Result const verified({"verify", inside, folder});
    EXPECT_TRUE(Contains(verified.output, "0 new on disk")) << verified.output;
}

TEST_F(StoryboardProgram, TakesWhatAKilledSaveLeftForNoClipAndRemovesIt)
{
    scratch.Write("media/.kvsave-0123456789abcdef.tmp", "half a project");
    scratch.Write(".kvsave-0123456789abcdef.tmp", "half a project");
    Result const made({"make", folder, file});
    EXPECT_TRUE(Contains(made.output, "project of 4 files")) << made.output;
    EXPECT_TRUE(Contains(made.output, "Left out: 1 entry, an unfinished save.\n")) << made.output;
    EXPECT_FALSE(fs::exists(scratch / ".kvsave-0123456789abcdef.tmp")) << "it is in the folder of the project";
    EXPECT_TRUE(Contains(Verified().output, "0 new on disk")) << Verified().output;
    Result const inside({"make", folder, StoredName(scratch / "media/a.story")});
    EXPECT_TRUE(Contains(inside.output, "project of 4 files")) << inside.output;
    EXPECT_FALSE(Contains(inside.output, "unfinished")) << inside.output;
    EXPECT_FALSE(fs::exists(scratch / "media/.kvsave-0123456789abcdef.tmp"));
}

TEST_F(StoryboardProgram, ShowsBinsClipsAndSources)
{
    MakeProject();
    Result const run({"show", file});
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.error, "");
    EXPECT_TRUE(run.output.starts_with("Project \"media\"\n")) << run.output;
    EXPECT_TRUE(Contains(run.output, "\nBin . (2 clips)\n")) << run.output;
    EXPECT_TRUE(Contains(run.output, "\nBin more (2 clips)\n")) << run.output;
    EXPECT_EQ(LineWith(run.output, "two.txt"), "two.txt ASCII text - cut 10 B 2");
    EXPECT_EQ(LineWith(run.output, "copy of one.txt"), "copy of one.txt ASCII text - cut 9 B 1");
    EXPECT_EQ(LineWith(run.output, "still.gif"), "still.gif GIF 320 x 200 5.0 s fade 1.0 s 13 B 3");
    EXPECT_EQ(LineWith(run.output, "All pictures"), "All pictures 1 13 B 5.0 s");
    EXPECT_EQ(LineWith(run.output, "All texts"), "All texts 3 19 B -");
    EXPECT_TRUE(LineWith(run.output, "7E79441B").starts_with("1 2 9 7E79441B624883EF4F3216C5B1EF2E3A 2")) << run.output;
    EXPECT_EQ(LineWith(run.output, "Contents"), "Contents 2 folders, 2 collections, 4 clips");
    EXPECT_EQ(LineWith(run.output, "  Sources"), "Sources 3, 32 B");
}

TEST_F(StoryboardProgram, ShowsWhatTheFormatSaved)
{
    MakeProject();
    Result const run({"show", "--summary", file});
    EXPECT_FALSE(Contains(run.output, "two.txt")) << run.output;
    // 4 bins, 2 * 4 places, 4 sources; 4 clips come again in a collection, and one source in a second clip.
    EXPECT_TRUE(
        LineWith(run.output, "References").starts_with("References 16, 5 of them repeats: 60 bytes in place of "))
        << run.output;
    // 2 formats, 2 lengths, 2 transitions.
    EXPECT_TRUE(LineWith(run.output, "Values").starts_with("Values 12, 6 of them repeats: 72 bytes in place of "))
        << run.output;
    EXPECT_EQ(
        LineWith(run.output, "  File"),
        "File " + std::to_string(fs::file_size(scratch / "a.story")) + " bytes, checksums included");
}

TEST_F(StoryboardProgram, ShowFitsTheTerminalOrTheWidthAskedFor)
{
    scratch.Write("media/" + std::string(150, 'n') + ".txt", "");
    MakeProject();
    auto const widest = [](std::string const & text)
    {
        std::size_t width = 0;
        for (std::size_t start = 0; start < text.size();)
        {
            std::size_t const end = text.find('\n', start);
            width = std::max(width, end - start);
            start = end + 1;
        }
        return width;
    };
    Screen screen;
    screen.outputWidth = 120;
    EXPECT_GT(widest(Result({"show", file}).output), 150u);
    EXPECT_LE(widest(Result({"show", file}, screen).output), 120u);
    EXPECT_LE(widest(Result({"show", "--width", "110", file}, screen).output), 110u);
    EXPECT_GT(widest(Result({"show", "--width=0", file}, screen).output), 150u);
}

TEST_F(StoryboardProgram, VerifiesThatNothingChanged)
{
    MakeProject();
    Result const run({"verify", file, folder});
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.output, "4 files in the project: 4 unchanged, 0 changed, 0 missing; 0 new on disk\n");
    EXPECT_TRUE(Contains(run.error, "Verifying: 100 %")) << run.error;
}

TEST_F(StoryboardProgram, VerifySeesAChangeOfSize)
{
    MakeProject();
    scratch.Write("media/one.txt", "the first, longer");
    Result const run = Verified();
    EXPECT_EQ(run.code, ExitChanged);
    EXPECT_EQ(
        run.output,
        "changed   one.txt: 17 bytes, was 9\n"
        "4 files in the project: 3 unchanged, 1 changed, 0 missing; 0 new on disk\n");
}

TEST_F(StoryboardProgram, VerifySeesAChangeOfContent)
{
    MakeProject();
    scratch.Write("media/more/copy of one.txt", "The first");
    Result const run = Verified();
    EXPECT_EQ(run.code, ExitChanged);
    EXPECT_TRUE(run.output.starts_with("changed   more/copy of one.txt: sum ")) << run.output;
}

TEST_F(StoryboardProgram, VerifySeesWhatIsMissingAndNew)
{
    MakeProject();
    fs::rename(scratch / "media/two.txt", scratch / "media/2.txt");
    scratch.Write("media/one.txt", "changed as well");
    Result const run = Verified();
    EXPECT_EQ(run.code, ExitMissing) << "missing goes before changed";
    EXPECT_EQ(
        run.output,
        "changed   one.txt: 15 bytes, was 9\n"
        "missing   two.txt\n"
        "new       2.txt\n"
        "4 files in the project: 2 unchanged, 1 changed, 1 missing; 1 new on disk\n");
}

TEST_F(StoryboardProgram, VerifySeesAFolderInPlaceOfAFile)
{
    MakeProject();
    fs::remove(scratch / "media/two.txt");
    fs::create_directory(scratch / "media/two.txt");
    Result const run = Verified();
    EXPECT_EQ(run.code, ExitMissing);
    EXPECT_TRUE(Contains(run.output, "missing   two.txt\n")) << run.output;
}

TEST_F(StoryboardProgram, NewFilesAloneAreNoChange)
{
    MakeProject();
    scratch.Write("media/three.txt", "");
    Result const run = Verified();
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(run.output.starts_with("new       three.txt\n")) << run.output;
}

TEST_F(StoryboardProgram, DamageIsToldByTheLibrarysTextAndCode)
{
    MakeProject();
    std::string bytes = scratch.Read("a.story");
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    scratch.Write("a.story", bytes);
    for (Result const & run : {Result({"show", file}), Verified()})
    {
        EXPECT_EQ(run.code, kv::tools::ExitDamaged);
        EXPECT_EQ(run.output, "");
        EXPECT_TRUE(run.error.ends_with("a.story is damaged: CRC checksum error (code 4)\n")) << run.error;
    }
    scratch.Write("a.story", bytes.substr(0, bytes.size() / 2));
    EXPECT_TRUE(Contains(Verified().error, "is damaged: Unexpected end of file (code 5)"));
    scratch.Write("a.story", "no project");
    EXPECT_TRUE(Contains(Verified().error, "is damaged: Illegal CRC block size (code 4); is it a project"));
}

TEST_F(StoryboardProgram, ProjectThatLeadsOutOfTheFolderIsDamaged)
{
    scratch.Write("secret", "secret");
    Ptr<Project> const project = SampleProject();
    project->bins[0]->clips[0]->path = "../secret";
    SaveProject(*project, scratch / "a.story");
    Result const run = Verified();
    EXPECT_EQ(run.code, kv::tools::ExitDamaged);
    EXPECT_TRUE(Contains(run.error, "is damaged: Illegal path in project (code 3)")) << run.error;
}

TEST_F(StoryboardProgram, NamesFromAFileCannotSteerTheTerminal)
{
    Ptr<Project> const project = SampleProject();
    project->title = TEXT("\x1B]0;title\x07");
    project->bins[0]->name = "\x1B[2J";
    project->bins[0]->clips[0]->path = "a\x1B[31m\n.png";
    project->bins[0]->clips[0]->format.encoding = "\x1B[1m";
    project->bins[0]->clips[0]->media->path = "\x9B"
                                              "31m";
    SaveProject(*project, scratch / "a.story");
    for (Result const & run : {Result({"show", file}), Result({"verify", file, folder})})
    {
        for (char const c : run.output + run.error)
        {
            EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << run.output;
        }
        EXPECT_FALSE(Contains(run.output, "\x9B")) << run.output;
        EXPECT_TRUE(Contains(run.output, "a\\x1B[31m\\n.png")) << run.output;
    }
}

TEST_F(StoryboardProgram, FilesThatAreNotThereAreTheSystemsFailure)
{
    MakeProject();
    std::string const nowhere = StoredName(scratch / "nowhere");
    struct
    {
        std::vector<std::string> arguments;
        std::string message;
    } const cases[] = {
        {{"show", nowhere}, "storyboard: cannot read " + Printable(nowhere) + ": "},
        {{"verify", nowhere, folder}, "storyboard: cannot read " + Printable(nowhere) + ": "},
        {{"verify", file, nowhere}, "storyboard: cannot read the folder " + Printable(nowhere) + ": "},
        {{"make", nowhere, file}, "storyboard: cannot read the folder " + Printable(nowhere) + ": "},
        {{"make", folder, folder}, "storyboard: cannot make " + Printable(folder) + ": "},
        {{"make", folder, nowhere + "/file"}, "storyboard: cannot make " + Printable(nowhere) + "/file: "},
    };
    for (auto const & one : cases)
    {
        Result const run(one.arguments);
        EXPECT_EQ(run.code, kv::tools::ExitIo) << one.message;
        EXPECT_TRUE(run.error.starts_with(one.message)) << run.error;
        EXPECT_GT(run.error.size(), one.message.size() + 3) << "no reason is told";
    }
}

TEST_F(StoryboardProgram, FailedMakeLeavesTheOldProject)
{
    MakeProject();
    std::string const before = scratch.Read("a.story");
    EXPECT_EQ(Result({"make", StoredName(scratch / "nowhere"), file}).code, kv::tools::ExitIo);
    EXPECT_EQ(scratch.Read("a.story"), before);
}

TEST_F(StoryboardProgram, UsageErrorsNameTheProblem)
{
    struct
    {
        std::vector<std::string> arguments;
        char const * part;
    } const cases[] = {
        {{}, "make, show, verify, "},
        {{"paint"}, "paint"},
        {{"show"}, "FILE"},
        {{"show", file, "more"}, "more"},
        {{"make", folder}, "FILE"},
        {{"show", "--width", "wide", file}, "width"},
        {{"show", "--width", "-1", file}, "width"},
    };
    for (auto const & one : cases)
    {
        Result const run(one.arguments);
        EXPECT_EQ(run.code, kv::tools::ExitUsage) << one.part;
        EXPECT_EQ(run.output, "");
        EXPECT_TRUE(run.error.starts_with("storyboard: ") && Contains(run.error, one.part)) << run.error;
    }
}

TEST_F(StoryboardProgram, PathMayBeginWithASlash)
{
    Result const run({"show", "/no/such/file"});
    EXPECT_EQ(run.code, kv::tools::ExitIo) << run.error;
    EXPECT_TRUE(run.error.starts_with("storyboard: cannot read /no/such/file: ")) << run.error;
}

TEST_F(StoryboardProgram, HelpTellsCommandsAndExitCodes)
{
    Result const help({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.error, "");
    for (char const * const part : {"make", "show", "verify", "--version", "Exit codes:", "  10  ", "  11  "})
    {
        EXPECT_TRUE(Contains(help.output, part)) << part << help.output;
    }
    Result const make({"make", "--help"});
    EXPECT_TRUE(Contains(make.output, "FOLDER") && Contains(make.output, "--quiet")) << make.output;
    Result const version({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_TRUE(version.output.starts_with("storyboard ") && version.output.ends_with("\n")) << version.output;
}

namespace
{

/// Fails at the n-th write.
class FailingOutput : public OutputStream
{
public:
    explicit FailingOutput(int writesBefore) : OutputStream(nullptr), left(writesBefore) {}
    void Write(char const *, int) override
    {
        if (left-- == 0)
        {
            throw StreamBase::Exception{1, TEXT("No space left on device")};
        }
    }

private:
    int left;
};

} // namespace

TEST_F(StoryboardProgram, OutputThatFailsIsTold)
{
    MakeProject();
    for (int writes = 0; writes < 20; ++writes)
    {
        MemorySource input("");
        FailingOutput output(writes);
        MemoryOutputStream error;
        kv::tools::Console console{input, output, error};
        EXPECT_EQ(RunStoryboard({"show", file}, console), kv::tools::ExitIo);
        EXPECT_EQ(error.GetContent(), "storyboard: cannot write the output: No space left on device\n");
    }
}

TEST_F(StoryboardProgram, FailingStoreLeavesNothingWrittenTwice)
{
    // Every write of the chain below the checksums fails once.
    Ptr<Project> const project = SampleProject();
    for (int writes = 0; writes < 3; ++writes)
    {
        FailingOutput output(writes);
        EXPECT_THROW(WriteProject(*project, output), StreamBase::Exception) << writes;
    }
    FailingOutput output(3); // length, payload, checksum
    EXPECT_NO_THROW(WriteProject(*project, output));
}

#ifndef _WIN32 // links to nothing, and names of any bytes, are what other systems have
TEST_F(StoryboardProgram, FilesThatCannotBeReadAreLeftOutAndTold)
{
    fs::create_symlink("nowhere", scratch / "media/dangling");
    fs::create_symlink("loop", scratch / "media/loop");
    Result const run({"make", "-q", folder, file});
    EXPECT_EQ(run.code, ExitIncomplete);
    EXPECT_TRUE(Contains(run.error, "storyboard: dangling: cannot be read: a link to nothing\n")) << run.error;
    EXPECT_TRUE(Contains(run.error, "storyboard: loop: cannot be read: ")) << run.error;
    EXPECT_TRUE(Contains(Result({"make", folder, file}).output, "Could not be read: 2 entries, named above.\n"));
    EXPECT_EQ(Verified().code, 0);
}

TEST_F(StoryboardProgram, VerifyTellsWhatItCannotReadBeforeWhatIsMissing)
{
    MakeProject();
    fs::remove(scratch / "media/one.txt");
    fs::remove(scratch / "media/two.txt");
    fs::create_symlink("two.txt", scratch / "media/two.txt"); // leads round in a circle
    Result const run = Verified();
    EXPECT_EQ(run.code, kv::tools::ExitIo);
    EXPECT_TRUE(Contains(run.output, "missing   one.txt\n")) << run.output;
    EXPECT_TRUE(Contains(run.output, "unread    two.txt: ")) << run.output;
    EXPECT_TRUE(Contains(run.output, "2 unchanged, 0 changed, 1 missing, 1 not readable; 0 new")) << run.output;
}

TEST_F(StoryboardProgram, LinksInTheFolderAreClipsOfOneSource)
{
    fs::create_symlink("one.txt", scratch / "media/link");
    fs::create_symlink("more", scratch / "media/link to a folder");
    Result const made({"make", folder, file});
    EXPECT_EQ(made.code, 0);
    EXPECT_TRUE(Contains(made.output, "5 files in 2 folders: 3 sources")) << made.output;
    EXPECT_TRUE(Contains(made.output, "Left out: 1 entry, a link to a folder.\n")) << made.output;
    fs::remove(scratch / "media/one.txt");
    Result const verified = Verified();
    EXPECT_EQ(verified.code, ExitMissing);
    EXPECT_TRUE(Contains(verified.output, "missing   link: is now a link to nothing\n")) << verified.output;
}

TEST_F(StoryboardProgram, NamesOfAnyBytesSurvive)
{
    scratch.Write("media/latin \xE9\x1B", "1");
    MakeProject();
    EXPECT_EQ(Verified().code, 0);
    EXPECT_TRUE(Contains(Result({"show", file}).output, "latin \\xE9\\x1B")) << Result({"show", file}).output;
    fs::remove(scratch / "media/latin \xE9\x1B");
    EXPECT_TRUE(Contains(Verified().output, "missing   latin \\xE9\\x1B\n"));
}

TEST_F(StoryboardProgram, ReplacesWhatALinkLeadsToAndNoDevice)
{
    MakeProject();
    fs::create_symlink("a.story", scratch / "link");
    scratch.Write("media/more.txt", "");
    ASSERT_EQ(Result({"make", "-q", folder, StoredName(scratch / "link")}).code, 0);
    EXPECT_TRUE(fs::is_symlink(scratch / "link"));
    EXPECT_EQ(Verified().code, 0);
    EXPECT_TRUE(Contains(Verified().output, "5 files"));
    EXPECT_EQ(Result({"make", folder, "/dev/null"}).code, kv::tools::ExitIo);
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}
#endif

} // namespace Storyboard
