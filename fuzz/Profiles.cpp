// Profile text of any bytes: read, changed key by key and section by section, read again; and a store's header check.

#include <map>
#include <string>
#include <vector>

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
    ScratchFile() : native("/dev/shm/kvfuzz-profile-" + std::to_string(getpid()) + ".ini")
    {
        if (access("/dev/shm", W_OK) != 0)
        {
            native = "/tmp/kvfuzz-profile-" + std::to_string(getpid()) + ".ini";
        }
        path = kv::platform::PathFromNative(native);
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

    std::string native;
    WString path;
};

using Lines = std::vector<WString>;

// For lists of inputs of 4 KiB, which grow by what is written; a larger buffer would cost more than the call.
constexpr DWORD room = 0x2000;

template <class Call>
Lines ListOf(Call && call)
{
    fuzz::Exact<WCHAR> const buffer(room);
    DWORD const length = call(buffer.Data());
    fuzz::Check(length <= room - 2 && buffer.Data()[length] == 0, "a list has no end");
    Lines lines;
    for (WCHAR const * line = buffer.Data(); *line != 0; line += lines.back().size() + 1)
    {
        lines.emplace_back(line);
    }
    return lines;
}

Lines SectionsOf(WString const & path)
{
    return ListOf([&](WCHAR * list) { return GetPrivateProfileSectionNamesW(list, room, path.c_str()); });
}

Lines LinesOf(WString const & path, WString const & section)
{
    return ListOf([&](WCHAR * list) { return GetPrivateProfileSectionW(section.c_str(), list, room, path.c_str()); });
}

/// Of many names some, from the first to the last: each list of lines reads the whole file anew.
Lines SampleOf(Lines const & names)
{
    constexpr std::size_t most = 8;
    std::size_t const step = names.size() / most + 1;
    Lines sample;
    for (std::size_t i = names.size() % step; i < names.size(); i += step)
    {
        sample.push_back(names[i]);
    }
    return sample;
}

/// Sets a key and finds it; the other sections' lines are what they were.
void ChangeKey(WString const & path, WString const & section)
{
    std::map<WString, Lines> before;
    Lines const names = SampleOf(SectionsOf(path));
    for (WString const & name : names)
    {
        before[name] = LinesOf(path, name);
    }
    fuzz::Check(
        WritePrivateProfileStringW(section.c_str(), TEXT("fuzz key"), TEXT("a value"), path.c_str()) != FALSE,
        "a key cannot be set");
    WCHAR text[20];
    DWORD const length = GetPrivateProfileStringW(section.c_str(), TEXT("FUZZ KEY"), TEXT(""), text, 20, path.c_str());
    fuzz::Check(WString(text, length) == TEXT("a value"), "a key that was set is not there");
    Lines const concerned = LinesOf(path, section);
    for (WString const & name : names)
    {
        Lines const after = LinesOf(path, name);
        fuzz::Check(after == before[name] || after == concerned, "a write changed another section");
    }
}

void CheckStore(WString const & path, std::string const & bytes, std::size_t headerLength)
{
    SectionedConfigData data;
    data.SetHeader(String::FromUtf8(bytes.substr(0, headerLength)));
    // A header cut in the middle of a character is another one, which the file may begin with all the same.
    bool const isHeader = bytes.starts_with(data.GetHeader().SystemMultibyte());
    try
    {
        data.ReadWindowsProfile(path);
    }
    catch (SectionedConfigData::Exception const & exception)
    {
        fuzz::Check(exception.kind == 0 || exception.kind == 1, "an exception of no kind");
        return;
    }
    fuzz::Check(data.GetHeader().empty() || isHeader, "a file without the header was read");
    try
    {
        data.WriteWindowsProfile(path);
    }
    catch (SectionedConfigData::Exception const & exception)
    {
        fuzz::Check(exception.kind == 0, "a write that fails with the wrong kind");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    static ScratchFile const file;
    fuzz::Input input(data, size);
    std::size_t const headerLength = input.Byte() % 32;
    bool const keepsSections = input.Byte() % 2 != 0;
    std::string const bytes = input.Rest();
    file.Write(bytes);
    CheckStore(file.path, bytes, headerLength);

    file.Write(bytes);
    Lines const names = SectionsOf(file.path);
    ChangeKey(file.path, names.empty() ? TEXT("new") : names.back());
    ChangeKey(file.path, TEXT("another new one"));
    if (!names.empty())
    {
        WCHAR const * const lines = keepsSections ? TEXT("x=1\0[y]=2\0") : nullptr;
        fuzz::Check(
            WritePrivateProfileSectionW(names[0].c_str(), lines, file.path.c_str()) != FALSE,
            "a section cannot be written");
        SectionsOf(file.path);
        GetPrivateProfileIntW(names[0].c_str(), TEXT("x"), 0, file.path.c_str());
    }
    return 0;
}
