#include <kvcore/tools/kv/Url.h>

#include <algorithm>

#include <kvcore/files/File.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

/// A scheme and a colon (RFC 3986); one letter alone is a drive.
bool IsUrl(std::string const & text)
{
    std::size_t const colon = text.find(':');
    auto const belongs = [](char c)
    {
        char const lower = static_cast<char>(c | 0x20);
        return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    return colon != std::string::npos && colon > 1 && (text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z' &&
        std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(colon), belongs);
}

} // namespace

int PrintUrls(UrlOptions const & options, Console & console)
{
    NamedOutput output("-", console);
    int code = ExitOk;
    for (std::string const & text : options.texts)
    {
        bool const url = IsUrl(text);
        // A URL tells a whole path.
        String const made =
            url ? File::URLToPath(String::FromUtf8(text)) : File::PathToURL(File::GetFullPath(TypedPath(text)));
        if (made.empty())
        {
            Complain(console, "kv url", text + (url ? " is not a file URL" : " has no URL"));
            code = ExitFailed;
            continue;
        }
        std::string const result = url ? ShownPath(made, options.win32) : made.Utf8();
        if (options.endsInNul)
        {
            Print(output, std::string_view(result.c_str(), result.size() + 1));
            continue;
        }
        PrintLine(output, Printable(result));
    }
    output.Finish();
    return code;
}

} // namespace kv::tools
