#pragma once

#include <string>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv resources` was asked for.
struct ResourcesOptions
{
    std::string file;
    bool strings = false;
    bool dialogs = false;
    bool version = false;
    /// "TYPE/NAME" or "TYPE/NAME/LANGUAGE"; empty for none.
    std::string extract;
    /// Where what is extracted goes; "-" or empty for the output.
    std::string output;
    /// Of strings, dialogs and versions, only this language, four hexadecimal digits; empty for all.
    std::string language;
};

/// Shows the resources of a module, be it a library or program of this system, or a file of Windows'. A file that is no
/// module, and one that has not what was asked for, is reported; the result is then `ExitFailed`.
[[nodiscard]] int ShowResources(ResourcesOptions const & options, Console & console);

} // namespace kv::tools
