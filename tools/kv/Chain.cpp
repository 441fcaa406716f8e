#include <kvcore/tools/kv/Chain.h>

#include <kvcore/tools/kv/Failures.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <iterator>

namespace kv::tools
{

namespace
{

struct StageRow
{
    char const * name;
    StageKind kind;
};

constexpr StageRow stageTable[] = {
    {"deflate", StageKind::Deflate},
    {"crc", StageKind::Crc},
    {"base64", StageKind::Base64},
    {"crypt", StageKind::Crypt},
};

constexpr char const * knownStages =
    "known stages are deflate, crc, base64 and crypt, such as in \"deflate,crc,base64\"";

int ParseNumber(std::string_view text, int low, int high, std::string_view what, std::string_view range)
{
    int value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < low || value > high)
    {
        throw UsageError(std::string(what) + " \"" + std::string(text) + "\" is not " + std::string(range));
    }
    return value;
}

std::string_view Trimmed(std::string_view text)
{
    std::size_t const first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
    {
        return {};
    }
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

Stage ParseStage(std::string_view text, StageDefaults const & defaults)
{
    std::size_t const colon = text.find(':');
    std::string_view const name = text.substr(0, colon);
    if (name.empty())
    {
        throw UsageError(std::string("CHAIN has an empty stage; ") + knownStages);
    }
    auto const * const row = std::find_if(
        std::begin(stageTable), std::end(stageTable), [&](StageRow const & known) { return known.name == name; });
    if (row == std::end(stageTable))
    {
        throw UsageError("unknown stage \"" + std::string(name) + "\"; " + knownStages);
    }

    bool const hasNumber = colon != std::string_view::npos;
    std::string_view const number = hasNumber ? text.substr(colon + 1) : std::string_view();
    switch (row->kind)
    {
    case StageKind::Deflate:
        return {row->kind, hasNumber ? ParseLevel(number, "the level in stage deflate,") : defaults.level};
    case StageKind::Base64:
        return {row->kind, hasNumber ? ParseLineWidth(number, "the line width in stage base64,") : defaults.lineWidth};
    default:
        if (hasNumber)
        {
            throw UsageError("stage " + std::string(name) + " takes no number");
        }
        return {row->kind, 0};
    }
}

} // namespace

char const * StageName(StageKind kind)
{
    return std::find_if(
               std::begin(stageTable), std::end(stageTable), [&](StageRow const & known) { return known.kind == kind; })
        ->name;
}

std::vector<Stage> ParseChain(std::string_view text, StageDefaults const & defaults)
{
    std::vector<Stage> chain;
    for (;;)
    {
        std::size_t const comma = text.find(',');
        chain.push_back(ParseStage(Trimmed(text.substr(0, comma)), defaults));
        if (comma == std::string_view::npos)
        {
            return chain;
        }
        text.remove_prefix(comma + 1);
    }
}

int ParseLevel(std::string_view text, std::string_view what)
{
    return ParseNumber(text, -1, 9, what, "a number from -1 (zlib's default) to 9 (smallest)");
}

int ParseLineWidth(std::string_view text, std::string_view what)
{
    return ParseNumber(text, 0, INT_MAX, what, "a number of characters (0 puts everything on one line)");
}

} // namespace kv::tools
