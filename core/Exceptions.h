#pragma once

#include <kvcore/core/NotCopyable.h>
#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Root of the exceptions that clients derive for failures of the system. The library itself never throws it; its log
/// prints it.
///
/// A value: it owns its strings, and nothing has to be released by who catches it. `name` alone is borrowed and has to
/// outlive the exception and all its copies. Any thread.
///
/// A deriving class hands the place of its throw on to its base by a default argument:
/// ~~~cpp
/// class DiskFull : public WinException
/// {
/// public:
///     explicit DiskFull(LONG code, ThrowSite const & site = ThrowSite()) :
///         WinException(TEXT("DiskFull"), code, site) {}
/// };
///
/// throw DiskFull(LONG(GetLastError())); // GetFile() and GetLine() tell this line
/// ~~~
class KVCORE_API WinException
{
public:
    /// A place in the source: where it is created or, as the default argument of a function, where that is called.
    struct ThrowSite
    {
        constexpr ThrowSite(char const * sourceFile = __builtin_FILE(), int sourceLine = __builtin_LINE())
            : file(sourceFile), line(sourceLine)
        {
        }

        char const * file; ///< UTF-8, static
        int line;
    };

    /// Named by a static text, or nameless. No place, no error.
    explicit WinException(WCHAR const * exceptionName = nullptr);
    /// Copies share the name's text.
    WinException(WinException const & other);
    WinException & operator=(WinException const & other);
    virtual ~WinException();

    /// The error code: a system error or an HRESULT.
    operator LONG() const;

    /// The error's text and its code in eight hexadecimal digits: "Unknown error (0x12345678)".
    String GetText() const;

    /// The name, or null.
    WCHAR const * GetName() const;
    /// What the deriving class noted down about the circumstances. The library only copies it.
    String const & GetContext() const;
    /// The source file and line of the throw; empty and 0 if not recorded.
    String const & GetFile() const;
    int GetLine() const;

protected:
    /// For deriving classes: `exceptionError` at `site`.
    WinException(WCHAR const * exceptionName, LONG exceptionError, ThrowSite const & site);

    /// The text for the error, String::FromError(error). Override it for codes that the system does not know; empty
    /// stands for "Unknown error".
    virtual String GetErrorString() const;

    // Deriving classes may set these.
    WCHAR const * name;
    String context;
    String file;
    int line;
    LONG error;
};
