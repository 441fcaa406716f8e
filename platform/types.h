#pragma once

// The Win32 value types of the public interface, and nothing else of Win32: the header to include from other headers.
// Sources that call Win32 functions include <kvcore/platform/win32.h>.

#include <string>

#ifdef _WIN32
#    if defined(__x86_64__) && !defined(_AMD64_)
#        define _AMD64_ // the system's headers want the processor named when <windows.h> does not come first
#    elif defined(__i386__) && !defined(_X86_)
#        define _X86_
#    endif
#    ifndef NOMINMAX
#        define NOMINMAX
#    endif
#    include <windef.h>

#    include <guiddef.h>
#    include <minwinbase.h>
// The system's own TEXT makes narrow literals of a program that does not define UNICODE. This interface is wide always.
#    undef TEXT
#    define TEXT(literal) L##literal
#else
#    include <kvcore/platform/include/basetypes.h>
#endif

/// The standard string over UTF-16 code units. On Windows this is std::wstring itself.
using WString = std::basic_string<WCHAR>;
