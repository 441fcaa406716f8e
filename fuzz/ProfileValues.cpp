// Values of profiles: records with their sums, numbers as the platform's call reads them, and the typed values of
// stored sections. What is written is read back; what is found is read as the plainest reading has it.

#include <cmath>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>

#include "Fuzz.h"

namespace
{

/// A file in memory, where there is one, made anew for each input.
class ScratchFile
{
public:
    ScratchFile()
        : native(
              std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/kvfuzz-values-" +
              std::to_string(getpid()) + ".ini"),
          path(kv::platform::PathFromNative(native))
    {
    }
    ~ScratchFile()
    {
        unlink(native.c_str());
    }
    void Write(std::string const & bytes) const
    {
        int const file = open(native.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        bool const written = file >= 0 && write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
        close(file);
        fuzz::Check(written, "the scratch file cannot be written");
    }

    std::string const native;
    WString const path;
};

/// A record of any size over whatever text the file has for it.
void ReadRecord(WString const & path, UINT size)
{
    fuzz::Exact<char> const data(size);
    GetPrivateProfileStructW(TEXT("s"), TEXT("k"), data.Data(), size, path.c_str());
}

void WriteRecord(WString const & path, std::string const & bytes)
{
    fuzz::Exact<char> const source(bytes.data(), bytes.size());
    auto const size = static_cast<UINT>(bytes.size());
    fuzz::Check(
        WritePrivateProfileStructW(TEXT("s"), TEXT("record"), source.Data(), size, path.c_str()) != FALSE,
        "a record cannot be written");
    fuzz::Exact<char> const back(size);
    fuzz::Check(
        GetPrivateProfileStructW(TEXT("s"), TEXT("record"), back.Data(), size, path.c_str()) != FALSE,
        "a record cannot be read back");
    fuzz::Check(std::equal(bytes.begin(), bytes.end(), back.Data()), "a record comes back as another one");
    fuzz::Exact<char> const longer(size + 1);
    fuzz::Check(
        GetPrivateProfileStructW(TEXT("s"), TEXT("record"), longer.Data(), size + 1, path.c_str()) == FALSE,
        "a record is read with another size");
}

/// The integer at the start of a text, as wide as it needs to be, between bounds.
long long PlainInteger(WString const & text, long long least, long long most)
{
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= 9 && text[at] <= 13)))
    {
        ++at;
    }
    bool const isNegative = at < text.size() && text[at] == '-';
    at += at < text.size() && (text[at] == '-' || text[at] == '+') ? 1 : 0;
    __int128 value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
    {
        value = value < static_cast<__int128>(1) << 100 ? value * 10 + (text[at] - '0') : value;
    }
    value = isNegative ? -value : value;
    return static_cast<long long>(value < least ? least : value > most ? most : value);
}

void CheckGetters(WString const & text)
{
    SectionedConfigData data;
    data.SetString(TEXT("s"), TEXT("k"), text);
    int number = 1;
    long long wide = 1;
    short narrow = 1;
    bool flag = false;
    double real = 1;
    fuzz::Check(
        data.GetInteger(TEXT("s"), TEXT("k"), number) && data.GetInteger(TEXT("s"), TEXT("k"), wide) &&
            data.GetInteger(TEXT("s"), TEXT("k"), narrow) && data.GetBoolean(TEXT("s"), TEXT("k"), flag) &&
            data.GetFloat(TEXT("s"), TEXT("k"), real),
        "a value that is there is not found");
    // Blanks beyond those of ASCII are the numbers' own affair.
    bool const isPlain = std::all_of(text.begin(), text.end(), [](WCHAR c) { return c != 0 && c < 0x80; });
    if (isPlain)
    {
        fuzz::Check(number == PlainInteger(text, INT_MIN, INT_MAX), "an integer of 32 bits is another one");
        fuzz::Check(wide == PlainInteger(text, LLONG_MIN, LLONG_MAX), "an integer of 64 bits is another one");
    }
    fuzz::Check(narrow == static_cast<short>(number) && flag == (number != 0), "readings of one text differ");
}

void CheckSetters(fuzz::Input & input)
{
    SectionedConfigData data;
    auto const low = input.DWord();
    auto const wide = static_cast<long long>(std::uint64_t{input.DWord()} << 32 | low);
    data.SetInteger(TEXT("s"), TEXT("i"), low);
    data.SetInteger(TEXT("s"), TEXT("w"), wide);
    unsigned int number = 0;
    long long back = 0;
    fuzz::Check(
        data.GetInteger(TEXT("s"), TEXT("i"), number) && number == low && data.GetInteger(TEXT("s"), TEXT("w"), back) &&
            back == wide,
        "an integer does not come back");
    double real = 0;
    std::memcpy(&real, &wide, sizeof real);
    data.SetFloat(TEXT("s"), TEXT("f"), real);
    double found = 0;
    String text;
    fuzz::Check(
        data.GetFloat(TEXT("s"), TEXT("f"), found) && data.GetString(TEXT("s"), TEXT("f"), text) && text.size() <= 31,
        "a float has no text");
    bool const fits = std::fabs(real) < 1e22; // its text is whole then
    fuzz::Check(!fits || std::fabs(found - real) <= 5e-7 + std::fabs(real) * 1e-15, "a float is another one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    static ScratchFile const file;
    fuzz::Input input(data, size);
    UINT const recordSize = input.Word();
    CheckSetters(input);
    std::string const rest = input.Rest();
    file.Write("[s]\r\nk=" + rest);
    ReadRecord(file.path, recordSize);
    if (rest.size() % 2 == 0 && !rest.empty())
    {
        ReadRecord(file.path, static_cast<UINT>(rest.size() / 2 - 1));
    }
    GetPrivateProfileIntW(TEXT("s"), TEXT("k"), 0, file.path.c_str());
    WriteRecord(file.path, rest);
    CheckGetters(fuzz::Input(data, size).RestWide());
    WString const narrow(rest.begin(), rest.end());
    CheckGetters(narrow);
    return 0;
}
