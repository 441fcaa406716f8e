// The rules on paths that touch no file system, beside the same rules written out plainly.

#include <stdexcept>

#include <kvcore/core/String.h>
#include <kvcore/files/File.h>

#include "Fuzz.h"

namespace
{

constexpr std::size_t none = WString::npos;

/// Letters of every script, as the library sees them, are asked of the library's own root test: "?:\".
bool IsLetter(WCHAR c)
{
    WCHAR const root[] = {c, ':', '\\'};
    return c != 0 && File::IsDriveRoot(String(root, 3));
}

bool HasDrive(WString const & path)
{
    return path.size() >= 2 && path[1] == ':' && IsLetter(path[0]);
}

bool ReferenceIsDriveRoot(WString const & path)
{
    bool const ends = path.size() == 3 || (path.size() > 3 && path[3] == 0);
    return ends && HasDrive(path) && path[2] == '\\';
}

bool ReferenceIsPathAbsolute(WString const & path)
{
    return (path.size() > 2 && HasDrive(path) && path[2] == '\\') ||
        (path.size() >= 2 && path[0] == '\\' && path[1] == '\\');
}

WString ReferenceDirname(WString const & path)
{
    if (ReferenceIsDriveRoot(path))
    {
        return path;
    }
    std::size_t const slash = path.rfind('\\');
    if (slash == none)
    {
        return TEXT(".");
    }
    WString const folder = path.substr(0, slash);
    return folder.size() == 2 && HasDrive(path) ? folder + WCHAR('\\') : folder;
}

/// False if the suffix is longer than the name, which is a failure of its own.
bool ReferenceBasename(WString const & path, WString const & suffix, WString & name)
{
    name.clear();
    if (path.empty() || path[0] == 0)
    {
        return true;
    }
    std::size_t const slash = path.rfind('\\');
    name = slash != none ? path.substr(slash + 1) : HasDrive(path) ? path.substr(2) : path;
    if (ReferenceIsDriveRoot(path))
    {
        name = TEXT("\\");
        return true;
    }
    if (suffix.empty())
    {
        return true;
    }
    if (suffix.size() > name.size())
    {
        // The search from beyond the end finds nothing, and there is not that much to cut.
        return false;
    }
    if (name != suffix)
    {
        name.resize(name.size() - suffix.size());
    }
    return true;
}

WString ReferenceCutExtension(WString const & path, WString const & extension)
{
    // A length below the extension's makes a start beyond every end.
    std::size_t const dot = extension.empty() ? path.rfind('.') : path.rfind(extension, path.size() - extension.size());
    if (dot == none || path.find('\\', dot) != none)
    {
        return path;
    }
    return path.substr(0, dot);
}

WString ReferenceMakePath(WString const & folder, WString const & name)
{
    if (folder.empty() || folder[0] == 0)
    {
        return name;
    }
    if (name.empty())
    {
        return folder;
    }
    if (ReferenceIsDriveRoot(folder))
    {
        return folder + name;
    }
    if (name.size() >= 2 && name[0] == '\\' && name[1] != '\\')
    {
        std::size_t const slash = folder.find('\\');
        return folder.substr(0, slash == none ? 0 : slash) + name;
    }
    WString path = folder;
    while (!path.empty() && path.back() == '\\')
    {
        path.pop_back();
    }
    return path + WCHAR('\\') + name;
}

void CheckBasename(String const & path, String const & suffix)
{
    WString expected;
    bool const good = ReferenceBasename(path, suffix, expected);
    try
    {
        String const name = File::GetBasename(path, suffix);
        fuzz::Check(good && name == expected, "GetBasename gives another name");
    }
    catch (std::length_error const &)
    {
        fuzz::Check(!good, "GetBasename fails where it should not");
    }
}

void CheckExtensions(String const & path, String const & extension)
{
    WString name;
    ReferenceBasename(path, WString(), name);
    std::size_t const dot = name.rfind('.');
    fuzz::Check(
        File::GetFileExtension(path) == (dot == none ? WString() : name.substr(dot)),
        "GetFileExtension gives another one");
    fuzz::Check(File::GetFileTitleW(path) == name.substr(0, dot), "GetFileTitleW gives another one");
    fuzz::Check(
        File::GetFilePathWithoutExtension(path) == path.substr(0, path.rfind('.')),
        "GetFilePathWithoutExtension gives another path");
    fuzz::Check(
        File::CutExtension(path, extension) == ReferenceCutExtension(path, extension),
        "CutExtension gives another path");
    WString const switched = path.empty() || path[0] == 0 ? WString() : ReferenceCutExtension(path, {}) + extension;
    fuzz::Check(File::SwitchExtension(path, extension) == switched, "SwitchExtension gives another path");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    bool const narrow = input.Byte() % 4 != 0;
    std::size_t const split = input.Byte();
    WString text;
    if (narrow)
    {
        std::string const rest = input.Rest();
        text.assign(rest.begin(), rest.end());
    }
    else
    {
        text = input.RestWide();
    }
    String const first = text.substr(0, std::min(split, text.size()));
    String const second = text.substr(first.size());

    fuzz::Check(File::IsDriveRoot(first) == ReferenceIsDriveRoot(first), "IsDriveRoot decides otherwise");
    fuzz::Check(File::IsPathAbsolute(first) == ReferenceIsPathAbsolute(first), "IsPathAbsolute decides otherwise");
    fuzz::Check(File::GetDirname(first) == ReferenceDirname(first), "GetDirname gives another folder");
    fuzz::Check(File::MakePath(first, second) == ReferenceMakePath(first, second), "MakePath gives another path");
    CheckBasename(first, second);
    CheckExtensions(first, second);

    // Those that ask the platform's text functions: no input may end in anything but a text of the size asked for.
    unsigned const limit = static_cast<unsigned>(split);
    fuzz::Check(File::CompactPath(first, limit).size() <= limit, "CompactPath makes more than was asked for");
    String cleaned = first;
    File::CleanFilename(cleaned, TEXT('_'));
    fuzz::Check(cleaned.size() <= std::max<std::size_t>(first.size() + 1, 1), "CleanFilename makes a path longer");
    return 0;
}
