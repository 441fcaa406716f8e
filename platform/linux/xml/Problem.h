#pragma once

#include <string>

#include <kvcore/platform/include/basetypes.h>

namespace kv::platform
{

/// What is wrong with a document. `reason` ends in a line break; `line` and `position` are from 1 on, or 0 for none.
struct Problem
{
    HRESULT code = 0;
    std::string reason;
    std::u16string url;
    int line = 0;
    int position = 0;
};

} // namespace kv::platform
