// Log files, from each target to every other.

#include <gtest/gtest.h>

#include <kvcore/tools/kv/LogLines.h>
#include <support/ScratchFolder.h>

#include "../frame/LogRig.h"
#include "StoredFiles.h"

namespace
{

using kv::test::Targets;
using kv::tools::LogLine;
using kv::tools::ParseLogLine;

/// The lines of a log as `kv log` takes them apart.
std::vector<LogLine> Parsed(std::string_view bytes)
{
    std::vector<LogLine> lines;
    for (std::size_t end; (end = bytes.find("\r\n")) != std::string_view::npos; bytes.remove_prefix(end + 2))
    {
        auto const line = ParseLogLine(bytes.substr(0, end));
        if (line)
        {
            lines.push_back(*line);
        }
    }
    EXPECT_TRUE(bytes.empty());
    return lines;
}

/// A log, with the times of its lines set to one, since nobody can write the same twice.
std::string WrittenLog()
{
    ScratchFolder const folder;
    LooseLog const log;
    log->SetFilename(folder.Name("log.txt").c_str());
    log->AddLine(TEXT("Loaded 12 clips"));
    log->SetThreadIndent(2);
    log->AddLine(TEXT("first\r\nsecond"));
    log->SetThreadIndent(0);
    log->AddFormattedLine(TEXT("%i of %s, 0x%08x, %I64d"), -3, TEXT("five"), 0xBEEFu, -81985529216486895LL);
    log->AddLine(TEXT("long ") + WString(1000, 'x'));
    log.End();
    std::string bytes = folder.Read("log.txt");
    for (std::size_t at = 0; at < bytes.size(); at = bytes.find("\r\n", at) + 2)
    {
        bytes.replace(at, 10, "[09:05:07]");
    }
    return bytes;
}

TEST(ExchangedLogs, AreWrittenAsTheyWereOnce)
{
    kv::test::ExpectAsStored("log.txt", WrittenLog());
}

TEST(ExchangedLogs, AreReadFromEveryTarget)
{
    for (std::string const & target : Targets())
    {
        SCOPED_TRACE(target);
        std::string const bytes = kv::test::Stored(target, "log.txt");
        std::vector<LogLine> const lines = Parsed(bytes);
        ASSERT_EQ(lines.size(), 5u);
        for (LogLine const & line : lines)
        {
            EXPECT_EQ(line.second, 9 * 3600 + 5 * 60 + 7);
            EXPECT_EQ(line.module, "test_excha");
        }
        EXPECT_EQ(lines[0].text, "Loaded 12 clips");
        EXPECT_EQ(lines[1].text, "    first");
        EXPECT_EQ(lines[2].text, "    second");
        EXPECT_EQ(lines[3].text, "-3 of five, 0x0000beef, -81985529216486895");
        EXPECT_EQ(lines[4].text, "long " + std::string(1000, 'x'));
    }
}

} // namespace
