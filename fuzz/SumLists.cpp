// Lists of MD5 sums of any bytes, line by line.
//
// What must hold for every input: the lines are those that a plain search for line ends gives, in whatever pieces the
// bytes come; a line that names a sum and a file is written in each form to a line that reads back equal; and what is
// shown of the name acts upon no terminal.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/Printable.h>

#include "Fuzz.h"

using namespace kv::tools;

namespace
{

class Pieces : public SourceStream
{
public:
    Pieces(std::string const & bytes, std::size_t pieceSize) : text(bytes), most(pieceSize) {}

    int ReadSome(char * data, int capacity) override
    {
        std::size_t const size = std::min({static_cast<std::size_t>(capacity), most, text.size() - position});
        std::memcpy(data, text.data() + position, size);
        position += size;
        return static_cast<int>(size);
    }

private:
    std::string const & text;
    std::size_t const most;
    std::size_t position = 0;
};

std::vector<std::string> LinesOf(std::string const & bytes, std::size_t pieceSize)
{
    Pieces pieces(bytes, pieceSize);
    LineReader reader(pieces);
    std::vector<std::string> lines;
    for (std::string line; reader.Next(line);)
    {
        lines.push_back(line);
    }
    return lines;
}

/// The lines by the plainest way.
std::vector<std::string> PlainLinesOf(std::string bytes)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < bytes.size();)
    {
        std::size_t const end = std::min(bytes.find('\n', at), bytes.size());
        std::string line = bytes.substr(at, end - at);
        if (line.ends_with('\r'))
        {
            line.pop_back();
        }
        if (at == 0 && line.starts_with("\xEF\xBB\xBF"))
        {
            line.erase(0, 3);
        }
        lines.push_back(line);
        at = end + 1;
    }
    return lines;
}

void CheckEntry(SumEntry const & entry)
{
    for (SumForm const form : {SumForm::Hex, SumForm::Base64, SumForm::Both})
    {
        std::string const line = FormatSumLine(entry.sum, entry.name, form);
        fuzz::Check(line.find_first_of("\r\n") == std::string::npos, "a line has a line end");
        std::optional<SumEntry> const back = ParseSumLine(line);
        fuzz::Check(back && back->sum == entry.sum && back->name == entry.name, "an entry does not read back");
    }
    std::string const shown = DisplayedName(entry.name);
    fuzz::Check(IsPrintable(shown) && Printable(shown) == shown, "a name is shown with characters of control");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::size_t const pieceSize = input.Byte() + std::size_t(1);
    std::string const bytes = input.Rest();
    std::vector<std::string> const lines = LinesOf(bytes, pieceSize);
    fuzz::Check(lines == PlainLinesOf(bytes), "the lines are others");
    for (std::string const & line : lines)
    {
        if (std::optional<SumEntry> const entry = ParseSumLine(line))
        {
            CheckEntry(*entry);
        }
    }
    return 0;
}
