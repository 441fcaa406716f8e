#pragma once

// IUnknown, for headers whose classes implement it.

#include <kvcore/platform/types.h>

#ifdef _WIN32
#    ifndef WIN32_LEAN_AND_MEAN
#        define WIN32_LEAN_AND_MEAN
#    endif
#    include <unknwn.h>
#else
#    include <kvcore/platform/include/unknown.h>
#endif
