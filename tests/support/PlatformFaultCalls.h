#pragma once

// The system's file calls with a fault before each, over the real ones. Included by the source of each system, which
// says how the real ones are reached: REAL_CALL(name), and what its own are called: FAULTY_CALL(name).

#include <kvcore/platform/win32.h>
#include <support/PlatformFaults.h>

extern "C"
{
    HANDLE WINAPI FAULTY_CALL(CreateFileW)(
        LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD creation, DWORD flags,
        HANDLE templateFile)
    {
        if (kv::test::PlatformFaults::Fails("CreateFileW"))
        {
            return INVALID_HANDLE_VALUE;
        }
        HANDLE const file = REAL_CALL(CreateFileW)(name, access, share, security, creation, flags, templateFile);
        if (file != INVALID_HANDLE_VALUE)
        {
            kv::test::PlatformFaults::Opened();
        }
        return file;
    }

    HANDLE WINAPI FAULTY_CALL(CreateFileMappingW)(
        HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protection, DWORD sizeHigh, DWORD sizeLow, LPCWSTR name)
    {
        if (kv::test::PlatformFaults::Fails("CreateFileMappingW"))
        {
            return nullptr;
        }
        HANDLE const mapping = REAL_CALL(CreateFileMappingW)(file, security, protection, sizeHigh, sizeLow, name);
        if (mapping != nullptr)
        {
            kv::test::PlatformFaults::Opened();
        }
        return mapping;
    }

    BOOL WINAPI FAULTY_CALL(CloseHandle)(HANDLE handle)
    {
        BOOL const closed = REAL_CALL(CloseHandle)(handle);
        if (closed)
        {
            kv::test::PlatformFaults::Closed();
        }
        return closed;
    }

    LPVOID WINAPI FAULTY_CALL(MapViewOfFile)(HANDLE mapping, DWORD access, DWORD high, DWORD low, SIZE_T size)
    {
        return kv::test::PlatformFaults::Fails("MapViewOfFile")
            ? nullptr
            : REAL_CALL(MapViewOfFile)(mapping, access, high, low, size);
    }

    DWORD WINAPI FAULTY_CALL(GetFileSize)(HANDLE file, LPDWORD high)
    {
        return kv::test::PlatformFaults::Fails("GetFileSize") ? INVALID_FILE_SIZE : REAL_CALL(GetFileSize)(file, high);
    }

    BOOL WINAPI FAULTY_CALL(ReadFile)(HANDLE file, LPVOID data, DWORD count, LPDWORD done, OVERLAPPED * request)
    {
        return !kv::test::PlatformFaults::Fails("ReadFile") && REAL_CALL(ReadFile)(file, data, count, done, request);
    }

    BOOL WINAPI FAULTY_CALL(WriteFile)(HANDLE file, LPCVOID data, DWORD count, LPDWORD done, OVERLAPPED * request)
    {
        return !kv::test::PlatformFaults::Fails("WriteFile") && REAL_CALL(WriteFile)(file, data, count, done, request);
    }

    BOOL WINAPI FAULTY_CALL(ReadFileEx)(
        HANDLE file, LPVOID data, DWORD count, OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE routine)
    {
        return !kv::test::PlatformFaults::Fails("ReadFileEx") &&
            REAL_CALL(ReadFileEx)(file, data, count, request, routine);
    }

    BOOL WINAPI FAULTY_CALL(WriteFileEx)(
        HANDLE file, LPCVOID data, DWORD count, OVERLAPPED * request, LPOVERLAPPED_COMPLETION_ROUTINE routine)
    {
        return !kv::test::PlatformFaults::Fails("WriteFileEx") &&
            REAL_CALL(WriteFileEx)(file, data, count, request, routine);
    }

    BOOL WINAPI FAULTY_CALL(SetFilePointerEx)(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER * position, DWORD mode)
    {
        return !kv::test::PlatformFaults::Fails("SetFilePointerEx") &&
            REAL_CALL(SetFilePointerEx)(file, distance, position, mode);
    }

    BOOL WINAPI FAULTY_CALL(FlushFileBuffers)(HANDLE file)
    {
        return !kv::test::PlatformFaults::Fails("FlushFileBuffers") && REAL_CALL(FlushFileBuffers)(file);
    }

    BOOL WINAPI FAULTY_CALL(LockFile)(HANDLE file, DWORD low, DWORD high, DWORD countLow, DWORD countHigh)
    {
        return !kv::test::PlatformFaults::Fails("LockFile") &&
            REAL_CALL(LockFile)(file, low, high, countLow, countHigh);
    }

    BOOL WINAPI FAULTY_CALL(UnlockFile)(HANDLE file, DWORD low, DWORD high, DWORD countLow, DWORD countHigh)
    {
        return !kv::test::PlatformFaults::Fails("UnlockFile") &&
            REAL_CALL(UnlockFile)(file, low, high, countLow, countHigh);
    }

    BOOL WINAPI FAULTY_CALL(GetFileTime)(HANDLE file, FILETIME * creation, FILETIME * access, FILETIME * write)
    {
        return !kv::test::PlatformFaults::Fails("GetFileTime") && REAL_CALL(GetFileTime)(file, creation, access, write);
    }

    BOOL WINAPI
    FAULTY_CALL(SetFileTime)(HANDLE file, FILETIME const * creation, FILETIME const * access, FILETIME const * write)
    {
        return !kv::test::PlatformFaults::Fails("SetFileTime") && REAL_CALL(SetFileTime)(file, creation, access, write);
    }
}
