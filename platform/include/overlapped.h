#pragma once

// Input and output that goes on beside the thread that asked for it: overlapped requests and their completion.

#include <kvcore/platform/include/basetypes.h>
