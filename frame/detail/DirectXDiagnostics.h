#pragma once

// The system's diagnostic provider, as far as it is asked for the version of DirectX, and the reading itself.

#include <kvcore/platform/export.h>
#include <kvcore/platform/win32.h>

namespace kv::detail
{

/// {A65B8071-3BFE-4213-9A5B-491DA4461CA7}
inline constexpr CLSID diagnosticProviderClass = {
    0xA65B8071, 0x3BFE, 0x4213, {0x9A, 0x5B, 0x49, 0x1D, 0xA4, 0x46, 0x1C, 0xA7}};
/// {9C6B4CB0-23F8-49CC-A3ED-45A55000A6D2}
inline constexpr IID diagnosticProviderInterface = {
    0x9C6B4CB0, 0x23F8, 0x49CC, {0xA3, 0xED, 0x45, 0xA5, 0x50, 0x00, 0xA6, 0xD2}};
/// {51B4ABF3-748F-4E3B-A276-C828330E926A}: a class that version 9 brought
inline constexpr CLSID version9Class = {0x51B4ABF3, 0x748F, 0x4E3B, {0xA2, 0x76, 0xC8, 0x28, 0x33, 0x0E, 0x92, 0x6A}};

/// How the provider is to work.
struct DiagnosticOptions
{
    DWORD size; ///< of this record
    DWORD headerVersion;
    BOOL allowCertificateChecks;
    void * reserved;
};
static_assert(sizeof(DiagnosticOptions) == 8 + 2 * sizeof(void *));

constexpr DWORD diagnosticHeaderVersion = 0x6F;

/// A node of the tree of facts.
struct IDiagnosticContainer : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE GetNumberOfChildContainers(DWORD * count) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumChildContainerNames(DWORD index, LPWSTR name, DWORD capacity) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChildContainer(LPCWSTR name, IDiagnosticContainer ** child) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNumberOfProps(DWORD * count) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumPropNames(DWORD index, LPWSTR name, DWORD capacity) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProp(LPCWSTR name, VARIANT * value) = 0;
};

struct IDiagnosticProvider : IUnknown
{
    virtual HRESULT STDMETHODCALLTYPE Initialize(DiagnosticOptions * options) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRootContainer(IDiagnosticContainer ** container) = 0;
};

/// What SysInfo::GetDirectXVersion finds and logs the first time; not kept.
KVCORE_API DWORD DetectDirectXVersion();

} // namespace kv::detail
