#pragma once

// The process's environment variables.
//
// Names are found in any case, one of the exact spelling first. Values are UTF-8 outside; what is none shows as U+FFFD.
// Any thread may call any of these; what reads the environment in other ways meanwhile is not excluded.

#include <kvcore/platform/include/basetypes.h>

extern "C"
{
    /// The command line of the process: its arguments with blanks between them and quotes where they need them, so that
    /// CommandLineToArgvW finds them again. Bytes of an argument that are no text become units as those of names do.
    /// The text is the process's own; it must not be changed or released.
    KVCORE_API LPWSTR WINAPI GetCommandLineW();

    /// Copies a variable's value. Gives its length; the size that the buffer needs, the NUL included, if `size` is too
    /// small; 0 with ERROR_ENVVAR_NOT_FOUND if there is no such variable. A variable may be empty.
    KVCORE_API DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);

    /// Sets a variable, or with a null `value` removes it, which is a success also if it was not there. FALSE with
    /// ERROR_INVALID_PARAMETER for an empty name or one with an equals sign.
    KVCORE_API BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);

    /// Copies `source` with each `%name%` replaced by the variable's value; names of no variable stay as they are.
    /// Gives the size of the result, the NUL included; if that is more than `size`, the last error is
    /// ERROR_INSUFFICIENT_BUFFER and the buffer holds nothing of use.
    KVCORE_API DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR buffer, DWORD size);
}
