#include <kvcore/tools/support/Terminal.h>

#include <sys/ioctl.h>
#include <unistd.h>

namespace kv::tools
{

bool IsTerminal(StandardStream stream)
{
    return ::isatty(static_cast<int>(stream)) != 0;
}

int TerminalWidth(StandardStream stream)
{
    int const descriptor = static_cast<int>(stream);
    if (!::isatty(descriptor))
    {
        return 0;
    }
    // A terminal that does not tell, such as a serial line, has the classic width.
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace kv::tools
