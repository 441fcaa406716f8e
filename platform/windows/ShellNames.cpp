#include <kvcore/platform/ShellNames.h>

#include <kvcore/platform/win32.h>

namespace kv::platform
{

unsigned CleanupSpec(WCHAR const * directory, WCHAR * name)
{
    // Exported by number alone, for as long as there has been a shell.
    using Function = int(WINAPI *)(WCHAR const *, WCHAR *);
    static auto const function = []
    {
        HMODULE const shell = LoadLibraryW(L"shell32.dll");
        FARPROC const address = shell != nullptr ? GetProcAddress(shell, MAKEINTRESOURCEA(171)) : nullptr;
        return reinterpret_cast<Function>(reinterpret_cast<void *>(address));
    }();
    return function != nullptr ? static_cast<unsigned>(function(directory, name)) : cleanupFatal;
}

} // namespace kv::platform
