#pragma once

#include <string>

#include <kvcore/core/String.h>

namespace kv::test
{

/// A failure as text for comparison: the code and what the member `text` says, or "none".
template <typename Exception, typename Action>
std::string FailureText(Action action, String Exception::*text)
{
    try
    {
        action();
    }
    catch (Exception const & failure)
    {
        return std::to_string(failure.code) + ": " + (failure.*text).Utf8();
    }
    return "none";
}

} // namespace kv::test
