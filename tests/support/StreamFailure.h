#pragma once

#include <gtest/gtest.h>

#include <string>

#include <kvcore/streams/Streams.h>
#include <support/FailureText.h>

namespace kv::test
{

/// The failure of a call as text, or "none".
template <typename Action>
std::string FailureOf(Action action)
{
    return FailureText(action, &StreamBase::Exception::text);
}

/// FailureOf of what the failing test streams throw.
constexpr char testFailure[] = "1: No luck today";

} // namespace kv::test
