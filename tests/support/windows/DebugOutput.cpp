#include <support/DebugOutput.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

// Without a debugger the text shows as an exception that nobody has to handle: in wide characters first, and where
// nobody wants that, in narrow ones.
constexpr DWORD printWide = 0x4001000A;
constexpr DWORD printNarrow = 0x40010006;

std::vector<std::string> texts;
void * handler;

LONG CALLBACK Note(EXCEPTION_POINTERS * exception)
{
    EXCEPTION_RECORD const & record = *exception->ExceptionRecord;
    if (record.ExceptionCode == printWide)
    {
        texts.push_back(String(reinterpret_cast<WCHAR const *>(record.ExceptionInformation[1])).Utf8());
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    if (record.ExceptionCode == printNarrow)
    {
        texts.push_back(reinterpret_cast<char const *>(record.ExceptionInformation[1]));
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

DebugOutput::DebugOutput()
{
    texts.clear();
    handler = AddVectoredExceptionHandler(1, Note);
}

DebugOutput::~DebugOutput()
{
    RemoveVectoredExceptionHandler(handler);
}

std::vector<std::string> const & DebugOutput::Texts() const
{
    return texts;
}
