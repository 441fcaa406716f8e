#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ScratchFolder.h>
#include <support/TestBytes.h>
#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RandomBytes;
using kv::test::RunTool;
using kv::test::ToolResult;

// The path as an argument has it: UTF-8, with slashes on every target.
std::string Argument(std::filesystem::path const & path)
{
    std::u8string const text = path.generic_u8string();
    return {text.begin(), text.end()};
}

TEST(KvFiles, InputAndOutputMayBeFiles)
{
    ScratchFolder const folder;
    std::string const data = RandomBytes(100000);
    std::string const plain = Argument(folder.Write("plain", data));
    std::string const encoded = Argument(folder / "encoded");
    std::string const decoded = Argument(folder / "decoded");
    EXPECT_EQ(RunTool(RunKv, {"encode", "crc,base64", "--input", plain, "--output", encoded}).code, ExitOk);
    EXPECT_EQ(RunTool(RunKv, {"decode", "crc,base64", "-i", encoded, "-o", decoded}).code, ExitOk);
    EXPECT_TRUE(folder.Read("decoded") == data);
}

TEST(KvFiles, NamesMayHaveAnyCharacter)
{
    ScratchFolder const folder;
    std::filesystem::path const name(u8"größe ☃ 名前.dat");
    std::string const path = Argument(folder.Write(name, "foobar"));
    std::string const target = Argument(folder / std::filesystem::path(u8"Ergebnis ☃"));
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-i", path, "-o", target}).code, ExitOk);
    EXPECT_EQ(folder.Read(std::filesystem::path(u8"Ergebnis ☃")), "Zm9vYmFy\n");
    EXPECT_EQ(RunTool(RunKv, {"sum", path}).output, "3858f62230ac3c915f300c664312c63f  " + path + "\n");
}

TEST(KvFiles, ADashIsTheStandardStream)
{
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-i", "-", "-o", "-"}, "foobar").output, "Zm9vYmFy\n");
}

TEST(KvFiles, AnExistingOutputIsReplaced)
{
    ScratchFolder const folder;
    std::string const target = Argument(folder.Write("target", RandomBytes(1000)));
    EXPECT_EQ(RunTool(RunKv, {"encode", "base64", "-o", target}, "foobar").code, ExitOk);
    EXPECT_EQ(folder.Read("target"), "Zm9vYmFy\n");
}

TEST(KvFiles, AFileIsNeverWrittenOverItself)
{
    ScratchFolder const folder;
    std::string const data = RandomBytes(1000);
    std::string const path = Argument(folder.Write("data", data));
    std::string const detour = Argument(folder / "." / "data");
    for (char const * command : {"encode", "decode"})
    {
        ToolResult const result = RunTool(RunKv, {command, "crypt", "-i", path, "-o", detour});
        EXPECT_EQ(result.code, ExitUsage);
        EXPECT_NE(result.error.find("the same file"), std::string::npos) << result.error;
        EXPECT_TRUE(folder.Read("data") == data);
    }
}

TEST(KvFiles, AFileThatCannotBeOpenedIsNamed)
{
    ScratchFolder const folder;
    std::string const missing = Argument(folder / "missing");
    ToolResult const input = RunTool(RunKv, {"encode", "crc", "-i", missing, "-o", Argument(folder / "new")});
    EXPECT_EQ(input.code, ExitIo);
    EXPECT_EQ(input.error, "kv: cannot open " + missing + ": No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "new"));

    std::string const nowhere = Argument(folder / "missing" / "file");
    ToolResult const output = RunTool(RunKv, {"encode", "crc", "-o", nowhere});
    EXPECT_EQ(output.code, ExitIo);
    EXPECT_EQ(output.error, "kv: cannot open " + nowhere + " for writing: No such file or directory\n");
}

TEST(KvFiles, DamageIsToldWithTheNameOfTheInputAndMakesNoFile)
{
    ScratchFolder const folder;
    std::string const source = Argument(folder.Write("source", "Zm9vYmFy*"));
    ToolResult const result = RunTool(RunKv, {"decode", "base64", "-i", source, "-o", Argument(folder / "target")});
    EXPECT_EQ(result.code, ExitDamaged);
    EXPECT_FALSE(std::filesystem::exists(folder / "target"));
    EXPECT_TRUE(result.error.starts_with("kv decode: " + source + " is damaged: Base64 format error")) << result.error;
}

} // namespace
