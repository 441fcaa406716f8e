#include <kvcore/tools/support/Terminal.h>

#include <kvcore/platform/win32.h>

#include <io.h>

namespace kv::tools
{

bool IsTerminal(StandardStream stream)
{
    // Not _isatty, which takes every device for a terminal, the null device too.
    HANDLE const handle = reinterpret_cast<HANDLE>(::_get_osfhandle(static_cast<int>(stream)));
    DWORD mode = 0;
    return handle != INVALID_HANDLE_VALUE && ::GetConsoleMode(handle, &mode) != FALSE;
}

int TerminalWidth(StandardStream stream)
{
    HANDLE const handle = reinterpret_cast<HANDLE>(::_get_osfhandle(static_cast<int>(stream)));
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (handle == INVALID_HANDLE_VALUE || !::GetConsoleScreenBufferInfo(handle, &info))
    {
        return 0;
    }
    return info.srWindow.Right - info.srWindow.Left + 1;
}

} // namespace kv::tools
