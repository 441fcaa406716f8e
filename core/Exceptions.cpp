#include <kvcore/core/Exceptions.h>

WinException::WinException(WCHAR const * exceptionName) : name(exceptionName), line(0), error(0) {}

WinException::WinException(WCHAR const * exceptionName, LONG exceptionError, ThrowSite const & site)
    : name(exceptionName), file(String::FromUtf8(site.file)), line(site.line), error(exceptionError)
{
}

WinException::WinException(WinException const & other) = default;

WinException & WinException::operator=(WinException const & other) = default;

WinException::~WinException() = default;

WinException::operator LONG() const
{
    return error;
}

String WinException::GetText() const
{
    String text = GetErrorString();
    if (text.empty())
    {
        text = TEXT("Unknown error");
    }
    return String::FromFormat(TEXT("%s (0x%08x)"), text.c_str(), static_cast<unsigned int>(error));
}

WCHAR const * WinException::GetName() const
{
    return name;
}

String const & WinException::GetContext() const
{
    return context;
}

String const & WinException::GetFile() const
{
    return file;
}

int WinException::GetLine() const
{
    return line;
}

String WinException::GetErrorString() const
{
    return String::FromError(DWORD(error));
}
