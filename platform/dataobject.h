#pragma once

// IDataObject and its records, for headers whose classes implement it.

#include <kvcore/platform/unknown.h>

#ifdef _WIN32
#    include <objidl.h>
#else
#    include <kvcore/platform/include/objidl.h>
#endif
