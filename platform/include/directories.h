#pragma once

// Names in the file system: paths and drives, attributes, directories, finding, copying, moving and removing.

#include <kvcore/platform/include/basetypes.h>
