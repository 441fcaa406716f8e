#pragma once

#include <atomic>
#include <utility>
#include <vector>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/files/AsyncFileStream.h>
#include <kvcore/platform/win32.h>

namespace kv::test
{

/// Both directions, sharing all; counts completions, and can make them fail or put them off.
template <typename Base>
struct Watched : Base
{
    explicit Watched(String const & file, FileCreationMode creation = FileCreation_OpenAlways)
        : Base(
              file, FileAccess_ReadWrite, FileShare_Read | FileShare_Write | FileShare_Delete, creation,
              FileAttributes_Normal)
    {
    }

    void CompletionRoutine(DWORD errorCode, DWORD bytes, OVERLAPPED * request) override
    {
        ++completions;
        if (putsOff)
        {
            putOff.push_back({errorCode, bytes, request});
            return;
        }
        Base::CompletionRoutine(nextError != 0 ? nextError.exchange(0) : errorCode, bytes, request);
    }
    /// Waits until so many completions have been put off.
    void AwaitPutOff(std::size_t count)
    {
        while (putOff.size() < count)
        {
            SleepEx(1000, TRUE);
        }
    }
    /// Lets them happen.
    void CompletePutOff()
    {
        putsOff = false;
        for (Completion const & completion : std::exchange(putOff, {}))
        {
            Base::CompletionRoutine(completion.errorCode, completion.bytes, completion.request);
        }
    }

    std::atomic<int> completions{0};
    std::atomic<DWORD> nextError{0};
    /// Completions are put off, so that their requests stay on their way. One thread then.
    bool putsOff = false;

private:
    struct Completion
    {
        DWORD errorCode;
        DWORD bytes;
        OVERLAPPED * request;
    };
    std::vector<Completion> putOff;
};
using AsyncFile = Watched<BasicAsyncFileStream>;
using ManagedFile = Watched<ManagedAsyncFileStream>;

/// Counts its references.
struct Owner : KVUnknown
{
    ULONG Count()
    {
        AddRef();
        return Release();
    }
};

} // namespace kv::test
