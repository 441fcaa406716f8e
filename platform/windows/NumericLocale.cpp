#include <kvcore/platform/NumericLocale.h>

#include <cstdlib>
#include <cstring>

#include <locale.h>

namespace kv::platform
{

// The order matters: only once the thread has a locale of its own does setlocale leave the other threads alone.
NumericLocaleGuard::NumericLocaleGuard() : saved(nullptr), savedMode(_configthreadlocale(_ENABLE_PER_THREAD_LOCALE))
{
    if (char const * const name = setlocale(LC_NUMERIC, nullptr))
    {
        saved = _strdup(name);
    }
    setlocale(LC_NUMERIC, "C");
}

NumericLocaleGuard::~NumericLocaleGuard()
{
    // A null name only asks, which is right if there was none to put back.
    setlocale(LC_NUMERIC, static_cast<char const *>(saved));
    std::free(saved);
    _configthreadlocale(savedMode);
}

} // namespace kv::platform
