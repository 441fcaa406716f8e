#pragma once

#include <optional>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/tools/support/Program.h>

namespace Storyboard
{

/// What the command line can leave open. It is kept in a profile file, in the sections and keys that stand here:
///
///     [progress]
///     quiet = 0 or 1
///     [show]
///     summary = 0 or 1
///     width = columns, 0 for no limit; without it those of the terminal
///
/// Other sections and keys, and comments, are other people's and stay.
struct Settings
{
    static constexpr int maxWidth = 100'000;

    bool quiet = false;
    bool summary = false;
    int width = -1; ///< as wide as the terminal
};

/// The library's path of a settings file: of the one that was typed, or else of the user's own.
[[nodiscard]] String SettingsPath(std::string const & typed);

/// The settings of a file; what is missing there, or the file, is as it is without. Throws Failure.
[[nodiscard]] Settings ReadSettings(String const & path);

/// Prints all settings, or one by its name (`show.width`), or sets it. Throws Failure for a name or a value that makes
/// no sense.
int RunSettings(
    kv::tools::Console & console, String const & path, std::string const & name,
    std::optional<std::string> const & value);

} // namespace Storyboard
