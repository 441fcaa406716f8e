#pragma once

// Message texts of the system, and message templates with inserts.

#include <cstdarg>

#include <kvcore/platform/include/basetypes.h>

#define FORMAT_MESSAGE_ALLOCATE_BUFFER 0x00000100u
#define FORMAT_MESSAGE_IGNORE_INSERTS 0x00000200u
#define FORMAT_MESSAGE_FROM_STRING 0x00000400u
#define FORMAT_MESSAGE_FROM_HMODULE 0x00000800u
#define FORMAT_MESSAGE_FROM_SYSTEM 0x00001000u
#define FORMAT_MESSAGE_ARGUMENT_ARRAY 0x00002000u
#define FORMAT_MESSAGE_MAX_WIDTH_MASK 0x000000FFu

extern "C"
{
    /// Prints a message into `buffer`. Returns the elements printed without the NUL, or 0 with the last error set.
    KVCORE_API DWORD WINAPI FormatMessageW(
        DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD capacity,
        std::va_list * arguments);
}
