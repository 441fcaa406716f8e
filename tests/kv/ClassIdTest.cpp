#include <kvcore/tools/kv/RunKv.h>
#include <kvcore/tools/support/ExitCodes.h>

#include <gtest/gtest.h>

#include <support/ToolConsole.h>

namespace
{

using namespace kv::tools;
using kv::test::RunTool;
using kv::test::ToolResult;

TEST(KvClassId, EachNameHasALine)
{
    ToolResult const result = RunTool(RunKv, {"classid", "XPDib", "Foo", "MemoryBlockVector"});
    EXPECT_EQ(result.code, ExitOk);
    EXPECT_EQ(
        result.output, "0x00001E75  7797  XPDib\n0x00000366  870  Foo\n0x3F83F587  1065612679  MemoryBlockVector\n");
    EXPECT_EQ(result.error, "");
}

TEST(KvClassId, IdentifiersAreSigned)
{
    EXPECT_EQ(
        RunTool(RunKv, {"classid", "VideoTransitionBase"}).output, "0xA3BB6F2D  -1547997395  VideoTransitionBase\n");
}

TEST(KvClassId, BytesAbove127CountAsNegative)
{
    EXPECT_EQ(
        RunTool(
            RunKv,
            {"classid",
             "ns::Gr\xC3\xB6\xC3\x9F"
             "e"})
            .output,
        "0x0000FAD2  64210  ns::Gr\xC3\xB6\xC3\x9F"
        "e\n");
}

TEST(KvClassId, KeywordsAreDroppedWhereverTheyStand)
{
    EXPECT_EQ(
        RunTool(RunKv, {"classid", "class Foo", "struct Foo"}).output, "0x00000366  870  Foo\n0x00000366  870  Foo\n");
    EXPECT_EQ(RunTool(RunKv, {"classid", "class Outer<struct Inner>"}).output, "0x00F0FB05  15792901  Outer<Inner>\n");
}

TEST(KvClassId, KeywordsStayIfAskedFor)
{
    EXPECT_EQ(RunTool(RunKv, {"classid", "--no-strip", "class Foo"}).output, "0x000A4B16  674582  class Foo\n");
}

TEST(KvClassId, NamesMayComeFromStandardInput)
{
    EXPECT_EQ(
        RunTool(RunKv, {"classid", "XPDib", "-"}, "class Foo\r\n\nXPDib").output,
        "0x00001E75  7797  XPDib\n0x00000366  870  Foo\n0x00001E75  7797  XPDib\n");
}

TEST(KvClassId, AnIdentifierOfZeroIsNoClass)
{
    ToolResult const result = RunTool(RunKv, {"classid", "class ", "Foo"});
    EXPECT_EQ(result.code, ExitFailed);
    EXPECT_EQ(result.output, "0x00000366  870  Foo\n");
    EXPECT_NE(result.error.find("identifier 0"), std::string::npos) << result.error;
}

} // namespace
