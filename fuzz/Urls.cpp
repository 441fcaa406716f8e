// Paths to URLs and back.

#include <kvcore/core/String.h>
#include <kvcore/files/File.h>

#include "Fuzz.h"

namespace
{

/// A path that every URL can carry: a root and parts of plain letters.
String PlainPath(std::string const & bytes)
{
    constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789-_ %#";
    String path = TEXT("C:");
    for (std::size_t i = 0; i < bytes.size() && i < 200; ++i)
    {
        unsigned char const byte = static_cast<unsigned char>(bytes[i]);
        if (i % 8 == 0)
        {
            path += WCHAR('\\');
            path += WCHAR('x'); // no part begins or ends in a blank
        }
        path += WCHAR(letters[byte % (sizeof(letters) - 1)]);
        if (i % 8 == 7 || i + 1 == bytes.size())
        {
            path += WCHAR('x');
        }
    }
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::uint8_t const choice = input.Byte();
    std::string const bytes = input.Rest();

    String text;
    if (choice % 2 == 0)
    {
        text = String::FromLatin1(bytes);
    }
    else
    {
        text = String(WString(bytes.size() / 2, 0));
        std::memcpy(text.data(), bytes.data(), text.size() * 2);
    }
    String const path = File::URLToPath(text);
    fuzz::Check(path.size() <= text.size() * 3 + 16, "a path grows beyond its URL");
    String const url = File::PathToURL(text);
    fuzz::Check(url.size() <= text.size() * 9 + 16, "a URL grows beyond its path");

    String const plain = PlainPath(bytes);
    if (plain.size() > 3)
    {
        fuzz::Check(File::URLToPath(File::PathToURL(plain)) == plain, "a path does not come back from its URL");
    }
    return 0;
}
