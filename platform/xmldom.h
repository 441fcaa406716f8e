#pragma once

// The document object model of XML and the automation types it works with, for the sources that call it: the system's
// own headers on Windows, elsewhere those of the platform layer.

#include <kvcore/platform/win32.h>

#ifdef _WIN32
#    include <msxml2.h>
#    include <oleauto.h>
#else
#    include <kvcore/platform/include/msxml.h>
#endif
