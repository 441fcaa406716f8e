#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include <kvcore/platform/win32.h>

/// The path as Win32 takes it. Scratch folders have plain names, so that a drive and the other separator make one.
inline WString Win32Path(std::filesystem::path const & path)
{
    std::u16string const text = path.u16string();
    WString result(text.begin(), text.end());
    for (WCHAR & unit : result)
    {
        unit = unit == '/' ? static_cast<WCHAR>('\\') : unit;
    }
    return !result.empty() && result[0] == '\\' ? TEXT("Z:") + result : result;
}

/// A handle that closes itself.
class ScopedHandle
{
public:
    explicit ScopedHandle(HANDLE openHandle = INVALID_HANDLE_VALUE) : handle(openHandle) {}
    ScopedHandle(
        WString const & path, DWORD access, DWORD share, DWORD disposition, DWORD flags = FILE_ATTRIBUTE_NORMAL)
        : handle(CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr)), error(GetLastError())
    {
    }
    ScopedHandle(ScopedHandle && other) noexcept
        : handle(std::exchange(other.handle, INVALID_HANDLE_VALUE)), error(other.error)
    {
    }
    ScopedHandle & operator=(ScopedHandle && other) noexcept
    {
        std::swap(handle, other.handle);
        std::swap(error, other.error);
        return *this;
    }
    ~ScopedHandle()
    {
        Close();
    }
    void Close()
    {
        if (IsOpen())
        {
            CloseHandle(std::exchange(handle, INVALID_HANDLE_VALUE));
        }
    }
    bool IsOpen() const
    {
        return handle != INVALID_HANDLE_VALUE && handle != nullptr;
    }
    /// The last error after opening, also after a success.
    DWORD Error() const
    {
        return error;
    }
    operator HANDLE() const
    {
        return handle;
    }

private:
    HANDLE handle;
    DWORD error = 0;
};

/// Access and sharing that stand in nobody's way.
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;

/// What a call left as the last error: `LastErrorOf([&] { return ReadFile(...); })` is 0 for a success.
template <class Call>
DWORD LastErrorOf(Call call)
{
    SetLastError(0xBEEF);
    return call() ? 0 : GetLastError();
}
