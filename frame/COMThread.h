#pragma once

#include <kvcore/frame/Thread.h>

/// A thread on which COM is initialised, in an apartment of its own, while `run` works.
class KVCORE_API COMThread : public Thread
{
protected:
    void init(bool starting) override;
};
