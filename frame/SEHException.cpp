#include <kvcore/frame/SEHException.h>

#include <iterator>
#include <string>

#include <kvcore/frame/ModuleBase.h>
#include <kvcore/frame/detail/CrashReporter.h>
#include <kvcore/frame/detail/ThreadName.h>
#include <kvcore/platform/win32.h>

namespace
{

struct CodeName
{
    ULONG code;
    WCHAR const * text;
};

constexpr CodeName codeNames[] = {
    {0x80000002, TEXT("Data type misalignment")},
    {0x80000003, TEXT("Break point")},
    {0x80000004, TEXT("Single step")},
    {0xC0000005, TEXT("Access violation")},
    {0xC0000006, TEXT("In page error")},
    {0xC000001D, TEXT("Illegal instruction")},
    {0xC0000025, TEXT("Non-continuable exception")},
    {0xC0000026, TEXT("Invalid disposition")},
    {0xC000008C, TEXT("Array bounds exceeded")},
    {0xC000008D, TEXT("Denormal operand (FLT)")},
    {0xC000008E, TEXT("Divide by zero (FLT)")},
    {0xC000008F, TEXT("Inexact result (FLT)")},
    {0xC0000090, TEXT("Invalid operation (FLT)")},
    {0xC0000091, TEXT("Overflow (FLT)")},
    {0xC0000092, TEXT("Stack check (FLT)")},
    {0xC0000093, TEXT("Underflow (FLT)")},
    {0xC0000094, TEXT("Divide by zero (INT)")},
    {0xC0000095, TEXT("Overflow (INT)")},
    {0xC0000096, TEXT("Priv instruction")},
    {0xC00000FD, TEXT("Stack overflow")},
};

constexpr std::size_t firstPathSize = 260;

thread_local bool reporting = false;

struct Reporting
{
    Reporting()
    {
        reporting = true;
    }
    ~Reporting()
    {
        reporting = false;
    }
};

// Whatever the report did: a fault within it is translated without a further report, and goes no further than this.
void Report(EXCEPTION_POINTERS * fault)
{
    kv::detail::CrashReporter const * const reporter = kv::detail::CrashReporter::Current();
    if (reporter == nullptr || reporting)
    {
        return;
    }
    Reporting const scope;
    try
    {
        reporter->Report(fault, kv::detail::ThreadNameBuffer());
    }
    catch (...)
    {
    }
}

// The code is that of the record.
void Translate(unsigned, EXCEPTION_POINTERS * fault)
{
    Report(fault);
    throw SEHException(fault->ExceptionRecord->ExceptionCode, fault->ExceptionRecord->ExceptionAddress);
}

class TranslatorScope
{
public:
    TranslatorScope() : previous(kv::platform::SetFaultTranslator(Translate)) {}
    ~TranslatorScope()
    {
        kv::platform::SetFaultTranslator(previous);
    }
    TranslatorScope(TranslatorScope const &) = delete;
    TranslatorScope & operator=(TranslatorScope const &) = delete;

private:
    kv::platform::FaultTranslator previous;
};

// As wcscpy_s does: what does not fit whole is not there at all.
void SetThreadName(WCHAR const * name)
{
    WCHAR * const buffer = kv::detail::ThreadNameBuffer();
    if (buffer == nullptr)
    {
        return;
    }
    std::size_t length = 0;
    while (name != nullptr && length < kv::detail::threadNameSize && name[length] != 0)
    {
        ++length;
    }
    if (length == kv::detail::threadNameSize)
    {
        length = 0;
    }
    std::char_traits<WCHAR>::copy(buffer, name, length);
    buffer[length] = 0;
}

} // namespace

SEHException::SEHException(ULONG code, void * location) : exceptionCode(code), exceptionLocation(location) {}

ULONG SEHException::GetCode() const
{
    return exceptionCode;
}

String SEHException::GetCodeAsString() const
{
    for (CodeName const & name : codeNames)
    {
        if (name.code == exceptionCode)
        {
            return name.text;
        }
    }
    return TEXT("Unknown");
}

void * SEHException::GetModuleLocation() const
{
    return exceptionLocation;
}

String SEHException::GetModuleFileNameW() const
{
    HMODULE const module = ModuleBase::GetHInstance(exceptionLocation);
    WString path(firstPathSize, 0);
    DWORD length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    while (length == path.size()) // which may have been cut off
    {
        path.resize(2 * path.size() + firstPathSize);
        length = ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    }
    return WString(path, 0, length);
}

String SEHException::GetMsg() const
{
    return String::FromFormat(
        TEXT("Fatal exception '%s' caused by module '%s' at location 0x%08I64X"), GetCodeAsString().c_str(),
        GetModuleFileNameW().c_str(), static_cast<unsigned __int64>(reinterpret_cast<ULONG_PTR>(exceptionLocation)));
}

void SEHCall::DoCall()
{
    TranslatorScope const scope;
    Execute();
}

SEHTryCatchEnabler::SEHTryCatchEnabler(WCHAR const * name)
{
    SetThreadName(name);
    previousTranslator = kv::platform::SetFaultTranslator(Translate);
}

SEHTryCatchEnabler::~SEHTryCatchEnabler()
{
    kv::platform::SetFaultTranslator(previousTranslator);
}
