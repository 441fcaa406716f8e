#pragma once

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace kv::test
{

/// COM for the calling thread while the object lives.
class ComApartment
{
public:
    ComApartment()
    {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    }
    ComApartment(ComApartment const &) = delete;
    ComApartment & operator=(ComApartment const &) = delete;
    ~ComApartment()
    {
        CoUninitialize();
    }
};

} // namespace kv::test
