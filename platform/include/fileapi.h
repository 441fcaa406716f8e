#pragma once

// Open files: handles, reading, writing, sizes, locks and times; memory-mapped files.

#include <kvcore/platform/include/basetypes.h>
