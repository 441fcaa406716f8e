#include <kvcore/frame/SysInfo.h>

#include <clocale>
#include <string>

#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/detail/ComObjects.h>
#include <kvcore/frame/detail/DirectXDiagnostics.h>
#include <kvcore/platform/win32.h>

namespace kv::detail
{

namespace
{

constexpr DWORD anyServer = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

/// The diagnostic provider changes the program's locale and leaves it so.
class KeptLocale
{
public:
    KeptLocale()
    {
        if (char const * const name = std::setlocale(LC_ALL, nullptr))
        {
            before = name;
        }
    }
    KeptLocale(KeptLocale const &) = delete;
    KeptLocale & operator=(KeptLocale const &) = delete;
    ~KeptLocale()
    {
        if (!before.empty())
        {
            std::setlocale(LC_ALL, before.c_str());
        }
    }

private:
    std::string before;
};

template <class Interface>
class Held
{
public:
    Held() = default;
    Held(Held const &) = delete;
    Held & operator=(Held const &) = delete;
    ~Held()
    {
        if (object != nullptr)
        {
            object->Release();
        }
    }
    Interface * operator->() const
    {
        return object;
    }
    explicit operator bool() const
    {
        return object != nullptr;
    }
    Interface ** Place()
    {
        return &object;
    }

private:
    Interface * object = nullptr;
};

class Property
{
public:
    Property(IDiagnosticContainer & container, WCHAR const * name)
    {
        VariantInit(&value);
        isThere = SUCCEEDED(container.GetProp(name, &value));
    }
    Property(Property const &) = delete;
    Property & operator=(Property const &) = delete;
    ~Property()
    {
        VariantClear(&value);
    }
    /// False, with `number` as it was, unless the property is an unsigned number of 32 bits.
    bool Read(DWORD & number) const
    {
        if (!isThere || value.vt != VT_UI4)
        {
            return false;
        }
        number = value.ulVal;
        return true;
    }
    bool Read(WCHAR & firstLetter) const
    {
        if (!isThere || value.vt != VT_BSTR || value.bstrVal == nullptr)
        {
            return false;
        }
        firstLetter = value.bstrVal[0];
        return true;
    }

private:
    VARIANT value;
    bool isThere;
};

/// E_FAIL unless all three are there; those that are not stay as they were.
HRESULT ReadDirectXVersion(DWORD & major, DWORD & minor, WCHAR & letter)
{
    KeptLocale const locale;
    Held<IDiagnosticProvider> provider;
    HRESULT error = CreateInstanceLogged(
        TEXT("clsid"), diagnosticProviderClass, nullptr, anyServer, TEXT("riid"), diagnosticProviderInterface,
        reinterpret_cast<void **>(provider.Place()));
    if (FAILED(error) || !provider)
    {
        return E_FAIL;
    }
    DiagnosticOptions options = {sizeof(options), diagnosticHeaderVersion, FALSE, nullptr};
    Held<IDiagnosticContainer> root;
    Held<IDiagnosticContainer> facts;
    if (FAILED(provider->Initialize(&options)) || FAILED(provider->GetRootContainer(root.Place())) || !root ||
        FAILED(root->GetChildContainer(TEXT("DxDiag_SystemInfo"), facts.Place())) || !facts)
    {
        return E_FAIL;
    }
    bool const hasMajor = Property(**facts.Place(), TEXT("dwDirectXVersionMajor")).Read(major);
    bool const hasMinor = Property(**facts.Place(), TEXT("dwDirectXVersionMinor")).Read(minor);
    bool const hasLetter = Property(**facts.Place(), TEXT("szDirectXVersionLetter")).Read(letter);
    return hasMajor && hasMinor && hasLetter ? S_OK : E_FAIL;
}

} // namespace

DWORD DetectDirectXVersion()
{
    DWORD major = 0;
    DWORD minor = 0;
    WCHAR letter = 0;
    if (FAILED(ReadDirectXVersion(major, minor, letter)))
    {
        KVLogFile::Object().AddFormattedLine(TEXT("Failed to detect detailed DirectX Version"));
        return major; // Kept: not shifted; mostly 0
    }
    KVLogFile::Object().AddFormattedLine(
        TEXT("Detected DirectX Version: %i.%i%c"), static_cast<int>(major), static_cast<int>(minor), letter);
    DWORD const revision = letter >= 'a' && letter <= 'z' ? static_cast<DWORD>(letter - 'a' + 1) : 0;
    return (major << 16 | minor << 8) + revision;
}

} // namespace kv::detail

namespace SysInfo
{

DWORD GetDirectXVersion()
{
    static DWORD const version = kv::detail::DetectDirectXVersion();
    return version;
}

DWORD FastGetDirectXVersion()
{
    IUnknown * object = nullptr;
    HRESULT const error = kv::detail::CreateInstanceLogged(
        TEXT("clsid"), kv::detail::version9Class, nullptr, kv::detail::anyServer, TEXT("riid"), IID_IUnknown,
        reinterpret_cast<void **>(&object));
    if (FAILED(error) || object == nullptr)
    {
        KVLogFile::Object().AddFormattedLine(TEXT("Quick DirectX version detection failed"));
        return GetDirectXVersion();
    }
    KVLogFile::Object().AddFormattedLine(TEXT("Detected DirectX Version 9 or higher"));
    object->Release();
    return 0x90000;
}

} // namespace SysInfo
