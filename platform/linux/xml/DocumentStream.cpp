#include "Document.h"

namespace kv::platform
{

namespace
{

/// Bytes on their way into a document, which gets them when the last reference goes.
class DocumentStream final : public IStream
{
public:
    explicit DocumentStream(Document & newTarget) : target(&newTarget) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        if (object == nullptr)
        {
            return E_POINTER;
        }
        if (iid != IID_IStream && iid != IID_ISequentialStream)
        {
            return target->QueryInterface(iid, object); // the stream is a side of the document
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
            target->LoadBytes(bytes);
            delete this;
        }
        return left;
    }

    HRESULT STDMETHODCALLTYPE Write(void const * data, ULONG size, ULONG * written) override
    {
        if (data == nullptr && size != 0)
        {
            return STG_E_INVALIDPOINTER;
        }
        HRESULT const result = Guarded(
            [&]
            {
                bytes.append(static_cast<char const *>(data), size);
                return S_OK;
            });
        if (written != nullptr)
        {
            *written = SUCCEEDED(result) ? size : 0;
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override
    {
        return S_OK;
    }

    // It is written from front to end, no more.
    HRESULT STDMETHODCALLTYPE Read(void *, ULONG, ULONG *) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER *) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream *, ULARGE_INTEGER, ULARGE_INTEGER *, ULARGE_INTEGER *) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Revert() override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG *, DWORD) override
    {
        return STG_E_INVALIDFUNCTION;
    }
    HRESULT STDMETHODCALLTYPE Clone(IStream **) override
    {
        return STG_E_INVALIDFUNCTION;
    }

private:
    ~DocumentStream() = default;

    std::atomic<ULONG> references{1};
    Reference<Document> const target;
    std::string bytes;
};

} // namespace

HRESULT GiveStream(Document & document, void ** target)
{
    *target = static_cast<IStream *>(new DocumentStream(document));
    return S_OK;
}

} // namespace kv::platform
