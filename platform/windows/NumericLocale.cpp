#include <kvcore/platform/NumericLocale.h>

#include <locale.h>
#include <wchar.h>

namespace kv::platform
{
namespace
{

/// Made once and never freed: it may be needed while the process's statics die. A locale handed to the call is the only
/// way that is safe beside other threads: a mode of the thread's own, set and taken back, is seen by others in some
/// run-time libraries.
_locale_t PlainLocale()
{
    static _locale_t const plain = _create_locale(LC_ALL, "C");
    return plain;
}

} // namespace

int PrintInvariant(WCHAR * buffer, std::size_t capacity, WCHAR const * format, std::va_list arguments)
{
    return _vsnwprintf_l(buffer, capacity, format, PlainLocale(), arguments);
}

} // namespace kv::platform
