#pragma once

// The shell's functions on texts that are paths or URLs.

#include <kvcore/platform/include/basetypes.h>
