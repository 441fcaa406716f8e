#pragma once

// The clock, the calendar, the time zone and the tick counter.

#include <kvcore/platform/include/basetypes.h>
