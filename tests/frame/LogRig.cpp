#include "LogRig.h"

#include <gtest/gtest.h>

std::vector<std::string> LinesOf(std::string const & bytes)
{
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = bytes.find("\r\n", begin)) != bytes.npos; begin = end + 2)
    {
        lines.push_back(bytes.substr(begin, end - begin));
    }
    EXPECT_EQ(begin, bytes.size()) << "the last line has no end";
    return lines;
}

namespace
{

bool IsStamp(std::string const & line)
{
    std::string const shape = "[00:00:00] ";
    for (std::size_t i = 0; i < shape.size(); ++i)
    {
        bool const matches = shape[i] == '0' ? line[i] >= '0' && line[i] <= '9' : line[i] == shape[i];
        if (!matches)
        {
            return false;
        }
    }
    return line[stampLength - 1] == ' ';
}

} // namespace

std::vector<std::string> TextsOf(std::string const & bytes)
{
    std::vector<std::string> texts = LinesOf(bytes);
    for (std::string & line : texts)
    {
        bool const isWhole = line.size() >= stampLength && IsStamp(line);
        EXPECT_TRUE(isWhole) << line.substr(0, 200);
        line.erase(0, isWhole ? stampLength : 0);
    }
    return texts;
}
