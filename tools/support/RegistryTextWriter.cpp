#include <kvcore/tools/support/RegistryText.h>

#include <climits>

#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

constexpr WCHAR const * lineEnd = TEXT("\r\n");

/// Where a line of bytes is full. Other writers of the format break there, too, so that files compare.
constexpr std::size_t fullLine = 77;

void AppendByte(WString & text, unsigned char byte)
{
    constexpr WCHAR const * digits = TEXT("0123456789abcdef");
    text += digits[byte >> 4];
    text += digits[byte & 15];
}

void AppendQuoted(WString & text, WString const & content)
{
    text += '"';
    for (WCHAR const c : content)
    {
        switch (c)
        {
        case '\n':
            text += TEXT("\\n");
            break;
        case '\r':
            text += TEXT("\\r");
            break;
        case '"':
        case '\\':
            text += '\\';
            [[fallthrough]];
        default:
            text += c;
        }
    }
    text += '"';
}

/// Whether all readers of the format give these bytes back from quotes: one text without line ends, and one NUL at its
/// end.
bool IsPlainText(std::string const & data)
{
    if (data.size() < sizeof(WCHAR) || data.size() % sizeof(WCHAR) != 0)
    {
        return false;
    }
    String const text = RegistryText(data);
    constexpr WCHAR special[] = {0, '\r', '\n'};
    return text.find_first_of(special, 0, 3) == text.size() - 1 && text.back() == 0;
}

void AppendHex(WString & line, RegistryValue const & value)
{
    line += TEXT("hex");
    if (value.type != REG_BINARY)
    {
        line += TEXT("(") + String::FromNum(static_cast<unsigned int>(value.type), 16) + TEXT(")");
    }
    line += TEXT(":");
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < value.data.size(); ++i)
    {
        AppendByte(line, static_cast<unsigned char>(value.data[i]));
        if (i + 1 == value.data.size())
        {
            break;
        }
        line += ',';
        if (line.size() - lineStart >= fullLine)
        {
            line += TEXT("\\\r\n");
            lineStart = line.size();
            line += TEXT("  ");
        }
    }
}

} // namespace

RegistryTextWriter::RegistryTextWriter(OutputStream & target) : stream(target)
{
    Write(TEXT("\xFEFFWindows Registry Editor Version 5.00\r\n"));
}

bool RegistryTextWriter::CanHold(String const & path)
{
    return path.find_first_of(lineEnd) == String::npos;
}

void RegistryTextWriter::Key(String const & path)
{
    Write(TEXT("\r\n[") + path + TEXT("]\r\n"));
}

void RegistryTextWriter::Value(RegistryValue const & value)
{
    WString line;
    if (value.name.empty())
    {
        line = TEXT("@");
    }
    else
    {
        AppendQuoted(line, value.name);
    }
    line += '=';
    if (value.type == REG_SZ && IsPlainText(value.data))
    {
        String const text = RegistryText(value.data);
        AppendQuoted(line, text.substr(0, text.size() - 1));
    }
    else if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD))
    {
        line += TEXT("dword:");
        for (std::size_t i = sizeof(DWORD); i-- > 0;)
        {
            AppendByte(line, static_cast<unsigned char>(value.data[i]));
        }
    }
    else
    {
        AppendHex(line, value);
    }
    Write(line + lineEnd);
}

void RegistryTextWriter::Finish()
{
    Write(lineEnd);
}

void RegistryTextWriter::Write(WString const & text)
{
    Print(stream, std::string_view(RegistryBytes(text)));
}

} // namespace kv::tools
