#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Storyboard
{

/// What a command line asks for. Paths are as they were typed.
struct Request
{
    std::string command;
    std::string folder;
    std::string file;
    std::string description;
    std::string output; ///< empty for the standard output

    std::string settingsFile; ///< empty for the user's own
    std::string setting;      ///< for the command `settings`
    std::optional<std::string> value;

    std::string logFile; ///< empty for none
    std::string faultName;
    int jobs = 0;
    std::optional<bool> quiet;
    std::optional<bool> summary;
    std::optional<int> width;
};

/// Thrown for a command line that asks only to be told something.
struct Information
{
    std::string text;
};

/// The language that a command line names, whatever else it says; empty if it names none. Its help is in it already.
std::string NamedLanguage(std::vector<std::string> const & arguments);

/// Takes a command line (UTF-8, without the program's name) apart. Throws Information, and Failure if it makes no
/// sense.
Request ParseArguments(std::vector<std::string> arguments);

} // namespace Storyboard
