#include <utility>

#include <kvcore/platform/include/oleauto.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>

using namespace kv::platform;

extern "C" IID const IID_IDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
extern "C" IID const IID_IErrorInfo = {0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
extern "C" IID const IID_ISupportErrorInfo = {
    0xDF0B3D60, 0x548F, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

namespace
{

struct ThreadReport
{
    IErrorInfo * report = nullptr;

    ~ThreadReport()
    {
        if (report != nullptr)
        {
            report->Release();
        }
    }
};

thread_local ThreadReport current;

} // namespace

HRESULT WINAPI SetErrorInfo(ULONG reserved, IErrorInfo * report)
{
    if (reserved != 0)
    {
        return E_INVALIDARG;
    }
    if (report != nullptr)
    {
        report->AddRef();
    }
    if (IErrorInfo * const before = std::exchange(current.report, report))
    {
        before->Release();
    }
    return S_OK;
}

HRESULT WINAPI GetErrorInfo(ULONG reserved, IErrorInfo ** report)
{
    CheckOutputs(report);
    if (reserved != 0 || report == nullptr)
    {
        return E_INVALIDARG;
    }
    *report = std::exchange(current.report, nullptr);
    return *report == nullptr ? S_FALSE : S_OK;
}
