#include <kvcore/platform/NumericLocale.h>

#include <locale.h>

#include <kvcore/platform/include/crt.h>

namespace kv::platform
{
namespace
{

/// Made once and never freed: it may be needed while the process's statics die. Of this name it always exists.
locale_t PlainLocale()
{
    static locale_t const plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
}

/// While it lives, the thread's locale is the plain one. It says nothing to other threads.
class PlainLocaleScope
{
public:
    PlainLocaleScope() : saved(uselocale(PlainLocale())) {}
    ~PlainLocaleScope()
    {
        uselocale(saved);
    }
    PlainLocaleScope(PlainLocaleScope const &) = delete;
    PlainLocaleScope & operator=(PlainLocaleScope const &) = delete;

private:
    locale_t saved;
};

} // namespace

int PrintInvariant(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments)
{
    PlainLocaleScope const scope;
    return _vsnwprintf(buffer, capacity, format, arguments);
}

} // namespace kv::platform
