#pragma once

#include <kvcore/platform/export.h>

/// Empty base of classes whose objects must not be copied. It cannot be created or deleted by itself: both its
/// constructor and its destructor are protected, and the destructor is not virtual.
class KVCORE_API NotCopyable
{
protected:
    NotCopyable() {}
    ~NotCopyable() {}

public:
    NotCopyable(NotCopyable const &) = delete;
    NotCopyable & operator=(NotCopyable const &) = delete;
};
