#pragma once

#include <gtest/gtest.h>

#include <kvcore/files/FileStreams.h>

namespace kv::test
{

/// The system's code that an action of a file stream fails with, 0 if it does not fail. The exception is checked to be
/// whole: its own code, and the system's words.
template <typename Action>
DWORD ErrorOf(Action action)
{
    try
    {
        action();
    }
    catch (BasicFileStream::Exception const & failure)
    {
        EXPECT_EQ(failure.code, 1);
        EXPECT_EQ(failure.text, String::FromError(failure.error));
        return failure.error;
    }
    return 0;
}

} // namespace kv::test
