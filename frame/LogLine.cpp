#include <kvcore/frame/detail/LogLine.h>

namespace kv::detail
{

namespace
{

constexpr std::size_t nameWidth = 10;

constexpr std::size_t stampLength = 11;

WCHAR * PutTwoDigits(WCHAR * at, unsigned value)
{
    *at++ = static_cast<WCHAR>('0' + value / 10 % 10);
    *at++ = static_cast<WCHAR>('0' + value % 10);
    return at;
}

WCHAR * Put(WCHAR * at, LogText text)
{
    return std::copy(text.begin(), text.end(), at);
}

} // namespace

// By hand, for the log is called often: a general formatter takes longer than all the rest.
void AppendLogLine(WString & line, LogTime const & time, LogText moduleName, unsigned long indent, LogText text)
{
    LogText const lineEnd = TEXT("\r\n");
    if (text.empty())
    {
        line.append(lineEnd);
        return;
    }
    std::size_t const before = line.size();
    std::size_t const blanks = 2 * std::size_t{indent};
    line.resize(before + stampLength + nameWidth + 1 + blanks + text.size() + lineEnd.size());
    WCHAR * at = line.data() + before;
    *at++ = '[';
    at = PutTwoDigits(at, time.hour);
    *at++ = ':';
    at = PutTwoDigits(at, time.minute);
    *at++ = ':';
    at = PutTwoDigits(at, time.second);
    at = Put(at, TEXT("] "));
    LogText const name = moduleName.substr(0, nameWidth);
    at = std::fill_n(Put(at, name), nameWidth - name.size() + 1 + blanks, WCHAR(' '));
    Put(Put(at, text), lineEnd);
}

} // namespace kv::detail
