#pragma once

#include <kvcore/core/String.h>
#include <kvcore/platform/types.h>

namespace kv::detail
{

/// The number that a text begins with, behind white space, as the C runtime's `wcstod` takes it in the "C" locale,
/// whatever locale is set: what is stored is read elsewhere, too. 0 if there is none.
double LeadingDouble(WString const & text);

/// The decimal number that a text begins with, behind white space and one sign; 0 if there is none. What is too large
/// is the greatest or the least number that there is.
__int64 LeadingInt64(WString const & text);

} // namespace kv::detail
