#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>

#include <gtest/gtest.h>

namespace kv::test
{

/// Runs `work` on a thread whose stack has `bytes` bytes, and waits for it. Windows takes no less than the program's
/// own stack size.
inline void RunOnStackOf(std::size_t bytes, std::function<void()> work)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    auto const run = [](void * argument) -> void *
    {
        (*static_cast<std::function<void()> *>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(pthread_attr_destroy(&attributes), 0);
}

} // namespace kv::test
