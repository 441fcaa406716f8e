// Command lines, taken apart; and arguments that are put together and found again.

#include <vector>

#include <kvcore/frame/CommandLine.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

/// The arguments of a line. Their texts must lie in the one block that is released.
std::vector<WString> Split(WString const & line)
{
    fuzz::Exact<WCHAR> const exact(line.c_str(), line.size() + 1);
    int count = 0;
    LPWSTR * const found = CommandLineToArgvW(exact.Data(), &count);
    fuzz::Check(found != nullptr && count >= 1, "a line without a program");
    fuzz::Check(found[count] == nullptr, "no end of the arguments");
    std::vector<WString> arguments(found, found + count);
    LocalFree(found);
    return arguments;
}

/// As Windows documents what a program has to do so that another one finds its arguments.
WString Quoted(WString const & argument)
{
    WString quoted(1, '"');
    std::size_t backslashes = 0;
    for (WCHAR const unit : argument)
    {
        quoted.append(unit == '"' ? backslashes + 1 : 0, '\\');
        backslashes = unit == '\\' ? backslashes + 1 : 0;
        quoted.push_back(unit);
    }
    quoted.append(backslashes, '\\');
    quoted.push_back('"');
    return quoted;
}

/// The line in letters that matter.
WString Lettered(std::string const & bytes)
{
    constexpr WCHAR letters[] = {'"', '\\', ' ', '\t', 'a', '-', '/', 0xD800};
    WString line;
    for (char const byte : bytes)
    {
        line.push_back(letters[static_cast<unsigned char>(byte) % 8]);
    }
    return line;
}

void CheckSplit(WString const & line)
{
    WString const text = line.substr(0, line.find(WCHAR(0)));
    if (text.empty())
    {
        return; // stands for the program's own path
    }
    std::vector<WString> const arguments = Split(text);
    std::size_t units = arguments.size() - 1;
    CommandLine commandLine;
    for (WString const & argument : arguments)
    {
        units += argument.size();
        commandLine.Parse(argument, !argument.empty() && argument[0] == '-', false);
    }
    fuzz::Check(units <= text.size(), "arguments longer than their line");
}

void CheckFoundAgain(WString const & line)
{
    std::vector<WString> arguments(1);
    for (WCHAR const unit : line)
    {
        if (unit == '/' || unit == 0)
        {
            arguments.emplace_back();
        }
        else
        {
            arguments.back().push_back(unit);
        }
    }
    WString whole(1, 'p');
    for (WString const & argument : arguments)
    {
        whole.push_back(' ');
        whole += Quoted(argument);
    }
    std::vector<WString> const found = Split(whole);
    fuzz::Check(
        found.size() == arguments.size() + 1 && std::equal(arguments.begin(), arguments.end(), found.begin() + 1),
        "arguments do not come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    WString const line = input.Byte() % 2 == 0 ? Lettered(input.Rest()) : input.RestWide();
    CheckSplit(line);
    CheckFoundAgain(line);
    return 0;
}
