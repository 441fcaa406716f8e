#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/include/memory.h>
#include <kvcore/platform/include/processenv.h>
#include <kvcore/platform/include/shellapi.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/paths/NativeNames.h>
#include <kvcore/platform/types.h>

// The kernel hands a program its arguments one by one; Windows hands it one line. The line is made so that
// CommandLineToArgvW finds the same arguments in it.

namespace kv::platform
{

namespace
{

bool IsBlank(WCHAR unit)
{
    return unit == ' ' || unit == '\t';
}

std::string ReadWhole(char const * path)
{
    std::string bytes;
    if (std::FILE * const file = std::fopen(path, "re"))
    {
        char piece[4096];
        while (std::size_t const size = std::fread(piece, 1, sizeof piece, file))
        {
            bytes.append(piece, size);
        }
        std::fclose(file);
    }
    return bytes;
}

/// An argument's units; bytes that are no text survive as in names.
WString Units(char const * argument, std::size_t size)
{
    WString units;
    for (std::size_t at = 0; at < size;)
    {
        // What no name holds is left as it is: only the rest is taken for a name.
        if (static_cast<unsigned char>(argument[at]) < 0x80)
        {
            units.push_back(static_cast<unsigned char>(argument[at++]));
            continue;
        }
        std::size_t end = at;
        while (end < size && static_cast<unsigned char>(argument[end]) >= 0x80)
        {
            ++end;
        }
        std::size_t const begin = units.size();
        units.resize(begin + end - at);
        units.resize(begin + DecodeName(argument + at, end - at, units.data() + begin));
        at = end;
    }
    return units;
}

/// In quotes where it needs them: backslashes in front of a quote are doubled, and the quote gets one more.
WString Quoted(WString const & argument)
{
    if (!argument.empty() && argument.find_first_of(u" \t\"") == argument.npos)
    {
        return argument;
    }
    WString quoted = u"\"";
    std::size_t backslashes = 0;
    for (WCHAR const unit : argument)
    {
        if (unit == '"')
        {
            quoted.append(backslashes + 1, '\\');
        }
        backslashes = unit == '\\' ? backslashes + 1 : 0;
        quoted.push_back(unit);
    }
    quoted.append(backslashes, '\\');
    quoted.push_back('"');
    return quoted;
}

/// The program's name, in which nothing is escaped: a quote would end it, and is left out.
WString QuotedProgram(WString name)
{
    std::erase(name, WCHAR('"'));
    if (!name.empty() && name.find_first_of(u" \t") == name.npos)
    {
        return name;
    }
    name.insert(name.begin(), '"');
    name.push_back('"');
    return name;
}

WString MakeCommandLine()
{
    std::string const bytes = ReadWhole("/proc/self/cmdline");
    WString line;
    for (std::size_t at = 0; at < bytes.size();)
    {
        std::size_t const size = std::strlen(bytes.c_str() + at);
        WString const argument = Units(bytes.data() + at, size);
        if (at == 0)
        {
            line = QuotedProgram(argument);
        }
        else
        {
            line.push_back(' ');
            line += Quoted(argument);
        }
        at += size + 1;
    }
    return line;
}

/// Takes a command line apart.
class Arguments
{
public:
    explicit Arguments(WCHAR const * line) : at(line) {}

    std::vector<WString> All()
    {
        std::vector<WString> arguments{Program()};
        for (SkipBlanks(); *at != 0; SkipBlanks())
        {
            arguments.push_back(Next());
        }
        return arguments;
    }

private:
    void SkipBlanks()
    {
        while (IsBlank(*at))
        {
            ++at;
        }
    }

    /// The first: in quotes, up to the next quote, else up to a blank. Nothing is escaped in it.
    WString Program()
    {
        WString program;
        bool const isQuoted = *at == '"';
        at += isQuoted;
        while (*at != 0 && (isQuoted ? *at != '"' : !IsBlank(*at)))
        {
            program.push_back(*at++);
        }
        at += isQuoted && *at == '"';
        return program;
    }

    WString Next()
    {
        WString argument;
        int quotes = 0; // 1: inside quotes
        while (*at != 0 && (quotes == 1 || !IsBlank(*at)))
        {
            std::size_t const backslashes = CountBackslashes();
            if (*at != '"')
            {
                argument.append(backslashes, '\\');
                if (backslashes == 0)
                {
                    argument.push_back(*at++);
                }
                continue;
            }
            argument.append(backslashes / 2, '\\');
            if (backslashes % 2 != 0)
            {
                argument.push_back(*at++);
                continue;
            }
            TakeQuotes(argument, quotes);
        }
        return argument;
    }

    std::size_t CountBackslashes()
    {
        WCHAR const * const begin = at;
        while (*at == '\\')
        {
            ++at;
        }
        return static_cast<std::size_t>(at - begin);
    }

    /// Quotes in a row: every third one, counted from the one that opens, stands for itself and closes.
    void TakeQuotes(WString & argument, int & quotes)
    {
        for (; *at == '"'; ++at)
        {
            if (++quotes == 3)
            {
                argument.push_back('"');
                quotes = 0;
            }
        }
        quotes = quotes == 2 ? 0 : quotes;
    }

    WCHAR const * at;
};

/// The arguments in one block of memory: the pointers, a null one, the texts.
LPWSTR * InOneBlock(std::vector<WString> const & arguments)
{
    std::size_t units = 0;
    for (WString const & argument : arguments)
    {
        units += argument.size() + 1;
    }
    std::size_t const pointers = (arguments.size() + 1) * sizeof(LPWSTR);
    auto * const block = static_cast<LPWSTR *>(LocalAlloc(LMEM_FIXED, pointers + units * sizeof(WCHAR)));
    if (block == nullptr)
    {
        return nullptr;
    }
    auto * text = reinterpret_cast<WCHAR *>(block + arguments.size() + 1);
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        block[i] = text;
        std::memcpy(text, arguments[i].c_str(), (arguments[i].size() + 1) * sizeof(WCHAR));
        text += arguments[i].size() + 1;
    }
    block[arguments.size()] = nullptr;
    return block;
}

} // namespace

} // namespace kv::platform

using namespace kv::platform;

namespace
{

/// What an empty line means.
WString ProgramPath()
{
    WString path(260, 0);
    DWORD length = 0;
    while ((length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) == path.size())
    {
        path.resize(2 * path.size());
    }
    path.resize(length);
    return path;
}

} // namespace

LPWSTR WINAPI GetCommandLineW()
{
    static WString & line = *new WString(MakeCommandLine());
    return line.data();
}

LPWSTR * WINAPI CommandLineToArgvW(LPCWSTR line, int * count)
{
    CheckText(line);
    CheckOutputs(count);
    if (count == nullptr)
    {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::vector<WString> arguments;
    if (line == nullptr || *line == 0)
    {
        arguments.push_back(ProgramPath());
    }
    else
    {
        arguments = Arguments(line).All();
    }
    LPWSTR * const block = InOneBlock(arguments);
    *count = block != nullptr ? static_cast<int>(arguments.size()) : 0;
    return block;
}
