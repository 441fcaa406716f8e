#pragma once

// Critical sections, events, waits and procedure calls queued to a thread.

#include <kvcore/platform/include/basetypes.h>
