#include <kvcore/config/BytesStream.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include <kvcore/config/ComCalls.h>

namespace kv::detail
{

namespace
{

constexpr HRESULT invalidPointer = STG_E_INVALIDPOINTER;
constexpr HRESULT noSuchOperation = E_NOTIMPL;

/// The caller's bytes as a stream to be read from front to end. A component that keeps a reference beyond the load sees
/// the end of the data.
class BytesStream final : public IStream
{
public:
    BytesStream(char const * data, std::size_t length) : begin(data), next(data), end(data + length) {}

    /// The bytes are the caller's again.
    void Detach()
    {
        begin = next = end = nullptr;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        *object = nullptr;
        if (iid != IID_IUnknown && iid != IID_ISequentialStream && iid != IID_IStream)
        {
            return E_NOINTERFACE;
        }
        *object = static_cast<IStream *>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return ++references;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        ULONG const left = --references;
        if (left == 0)
        {
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE Read(void * data, ULONG size, ULONG * read) override
    {
        if (data == nullptr)
        {
            return invalidPointer;
        }
        std::size_t const part = std::min<std::size_t>(size, static_cast<std::size_t>(end - next));
        if (part != 0)
        {
            std::memcpy(data, next, part);
            next += part;
        }
        if (read != nullptr)
        {
            *read = static_cast<ULONG>(part);
        }
        return part == size ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG * status, DWORD) override
    {
        if (status == nullptr)
        {
            return invalidPointer;
        }
        std::memset(status, 0, sizeof *status);
        status->type = 2; // a stream
        status->cbSize.QuadPart = static_cast<unsigned __int64>(end - begin);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER * position) override
    {
        __int64 const from = origin == 0 ? 0 : origin == 1 ? next - begin : end - begin;
        if (origin > 2 || move.QuadPart < -from || move.QuadPart > (end - begin) - from)
        {
            return STG_E_INVALIDFUNCTION;
        }
        next = begin + (from + move.QuadPart);
        if (position != nullptr)
        {
            position->QuadPart = static_cast<unsigned __int64>(next - begin);
        }
        return S_OK;
    }

    // The rest is for streams that are written to, or shared.
    HRESULT STDMETHODCALLTYPE Write(void const *, ULONG, ULONG *) override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *, ULARGE_INTEGER *) override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override
    {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Revert() override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return noSuchOperation;
    }
    HRESULT STDMETHODCALLTYPE Clone(IStream **) override
    {
        return noSuchOperation;
    }

private:
    ~BytesStream() = default;

    std::atomic<ULONG> references{1};
    char const * begin;
    char const * next;
    char const * end;
};

} // namespace

bool LoadFromBytes(IXMLDOMDocument2 & document, char const * data, std::size_t length)
{
    ComPointer<IPersistStreamInit> loader;
    if (FAILED(document.QueryInterface(IID_IPersistStreamInit, loader.ReceiveVoid())) || !loader)
    {
        return false;
    }
    ComPointer<BytesStream> stream;
    *stream.Receive() = new BytesStream(data, length);
    // The result says no more than the document's parse error, which the caller looks at.
    loader->Load(stream.Get());
    stream->Detach();
    return true;
}

} // namespace kv::detail
