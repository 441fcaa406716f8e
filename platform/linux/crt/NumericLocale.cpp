#include <kvcore/platform/NumericLocale.h>

#include <locale.h>

namespace kv::platform
{
namespace
{

/// Made once and never freed: guards may still live while the process's statics die. Of this name it always exists.
locale_t PlainLocale()
{
    static locale_t const plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
}

} // namespace

NumericLocaleGuard::NumericLocaleGuard() : saved(uselocale(PlainLocale())), savedMode(0) {}

NumericLocaleGuard::~NumericLocaleGuard()
{
    uselocale(static_cast<locale_t>(saved));
}

} // namespace kv::platform
