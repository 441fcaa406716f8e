#pragma once

#include <gtest/gtest.h>

#include <string>

#include <kvcore/streams/Streams.h>

namespace kv::test
{

/// A failure as text for comparison: the code and the message, or "none".
template <typename Action>
std::string FailureOf(Action action)
{
    try
    {
        action();
    }
    catch (StreamBase::Exception const & failure)
    {
        return std::to_string(failure.code) + ": " + failure.text.Utf8();
    }
    return "none";
}

/// FailureOf of what the failing test streams throw.
constexpr char testFailure[] = "1: No luck today";

} // namespace kv::test
