#include <kvcore/frame/detail/LogLine.h>

namespace kv::detail
{

namespace
{

constexpr std::size_t nameWidth = 10;

void AppendTwoDigits(WString & line, unsigned value)
{
    line.push_back(static_cast<WCHAR>('0' + value / 10 % 10));
    line.push_back(static_cast<WCHAR>('0' + value % 10));
}

} // namespace

// By hand, for the log is called often: a general formatter takes longer than all the rest.
void AppendLogLine(WString & line, LogTime const & time, LogText moduleName, unsigned long indent, LogText text)
{
    if (!text.empty())
    {
        line.push_back('[');
        AppendTwoDigits(line, time.hour);
        line.push_back(':');
        AppendTwoDigits(line, time.minute);
        line.push_back(':');
        AppendTwoDigits(line, time.second);
        line.append(TEXT("] "));
        LogText const name = moduleName.substr(0, nameWidth);
        line.append(name).append(nameWidth - name.size() + 1, ' ');
        line.append(2 * std::size_t{indent}, ' ');
        line.append(text);
    }
    line.append(TEXT("\r\n"));
}

} // namespace kv::detail
