#include <kvcore/tools/support/Terminal.h>

#include <kvcore/platform/win32.h>

#include <io.h>

namespace kv::tools
{

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
