#include "Settings.h"

#include <cstdlib>

#include <sys/auxv.h>

namespace kv::platform
{

namespace
{

// What the libraries below take from the environment without asking whose it is: places of data, of temporary files,
// and of plug-ins that would run.
constexpr char const * settingsOfLibraries[] = {"ICU_DATA",          "ICU_TIMEZONE_FILES_DIR", "LIBXSLT_PLUGINS_PATH",
                                                "XML_CATALOG_FILES", "SGML_CATALOG_FILES",     "SQLITE_TMPDIR"};

// Before anybody can have asked for them: a program with more rights than its caller goes without, as it goes without
// the settings that the C library's loader takes away.
[[gnu::constructor]] void DropSettingsOfLibraries()
{
    if (getauxval(AT_SECURE) != 0)
    {
        for (char const * const name : settingsOfLibraries)
        {
            unsetenv(name);
        }
    }
}

} // namespace

char const * PlaceSetting(char const * name) noexcept
{
    return secure_getenv(name);
}

} // namespace kv::platform
