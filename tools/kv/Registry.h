#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv reg` was asked for. Each action looks at what concerns it.
struct RegistryRequest
{
    std::string key;                 ///< as it was typed
    std::optional<std::string> name; ///< of a value; empty for the default value
    bool allValues = false;
    std::string type;
    std::vector<std::string> data;
    std::string separator;
    std::string file;
    std::size_t depth = 0;         ///< of keys below the key that are shown
    bool tabs = false;             ///< fields between tabs
    bool raw = false;              ///< data as its bytes
    bool sure = false;             ///< do not ask
    bool dryRun = false;           ///< read, and change nothing
    std::size_t count = 0;         ///< of changes to wait for; 0 for any number
    std::optional<double> seconds; ///< for which to wait for them
};

/// One function for each action; an exit code. What is not there is ExitFailed; failures are RegistryFailure.
[[nodiscard]] int ListRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int QueryRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int GetFromRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int SetInRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int DeleteFromRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int ExportRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int ImportRegistry(RegistryRequest const & request, Console & console);
[[nodiscard]] int WatchRegistry(RegistryRequest const & request, Console & console);

} // namespace kv::tools
