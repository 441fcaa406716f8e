#include <kvcore/tools/kv/CrashLines.h>

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace kv::tools
{

namespace
{

bool IsNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.' ||
        c == '$';
}

bool IsSequenceCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string SourceName(std::string const & linkerName)
{
    int status = 0;
    std::unique_ptr<char, void (*)(void *)> const name(
        abi::__cxa_demangle(linkerName.c_str(), nullptr, nullptr, &status), std::free);
    return status == 0 && name ? std::string(name.get()) : linkerName;
}

/// Whether a reference to an earlier part (S_, S0_, T_, T0_) begins here.
bool IsReference(std::string_view name, std::size_t at)
{
    if (name[at] != 'S' && name[at] != 'T')
    {
        return false;
    }
    ++at;
    while (at < name.size() && IsSequenceCharacter(name[at]))
    {
        ++at;
    }
    return at < name.size() && name[at] == '_';
}

/// What a piece of a linker's name adds, in characters: mostly one of an identifier, or a short word of the language.
std::size_t LengthOf(std::string_view pair)
{
    constexpr std::string_view longWords = "abiosd"; // std::basic_string, its arguments and the like
    bool const isLong = pair.size() == 2 && pair[0] == 'S' && longWords.find(pair[1]) != longWords.npos;
    return isLong ? 160 : 5;
}

/// The most arguments of one list (J...E), for each of which a pattern is repeated.
std::size_t LongestPack(std::string_view name)
{
    std::size_t longest = 0;
    std::size_t current = 0;
    bool isInside = false;
    for (char const c : name)
    {
        isInside = c == 'J' || (isInside && c != 'E');
        bool const isQualifier = c == 'J' || c == 'R' || c == 'K' || c == 'O' || c == 'P';
        current = c == 'J' ? 0 : current + (isInside && !isQualifier);
        longest = std::max(longest, current);
    }
    return longest + 1;
}

} // namespace

// A reference may stand for all that came before it. What a single piece adds is right but for a small factor.
std::size_t EstimateExpansion(std::string_view linkerName)
{
    constexpr std::size_t longestName = 1024; // a report cuts them off at half of that
    if (linkerName.size() > longestName)
    {
        return mostSourceNames + 1;
    }
    std::size_t length = 0;
    std::size_t const pack = LongestPack(linkerName);
    for (std::size_t i = 0; i < linkerName.size() && length <= mostSourceNames; ++i)
    {
        std::string_view const pair = linkerName.substr(i, 2);
        if (IsReference(linkerName, i))
        {
            length *= 2;
        }
        else if (pair == "Dp" || pair == "sp")
        {
            length *= pack;
        }
        length += LengthOf(pair);
    }
    return length;
}

std::string WithSourceNames(std::string const & line)
{
    std::string result;
    result.reserve(line.size());
    std::size_t at = 0;
    std::size_t left = mostSourceNames;
    for (std::size_t name; (name = line.find("(_Z", at)) != std::string::npos;)
    {
        std::size_t end = ++name;
        while (end < line.size() && IsNameCharacter(line[end]))
        {
            ++end;
        }
        std::string const linkerName = line.substr(name, end - name);
        std::size_t const most = EstimateExpansion(linkerName);
        result += line.substr(at, name - at) + (most <= left ? SourceName(linkerName) : linkerName);
        left -= std::min(left, most);
        at = end;
    }
    return result + line.substr(at);
}

} // namespace kv::tools
