#pragma once

// SYSTEM_INFO, for headers that hand it out.

#include <kvcore/platform/types.h>

#ifdef _WIN32
#    include <sysinfoapi.h>
#else
#    include <kvcore/platform/include/fileapi.h>
#endif
