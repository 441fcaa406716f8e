#include <kvcore/tools/kv/Info.h>

#include <kvcore/files/File.h>
#include <kvcore/frame/DateTime.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/LocalTime.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

std::string AttributeWords(unsigned int attributes)
{
    static constexpr struct
    {
        unsigned int bit;
        char const * word;
    } known[] = {
        {FILE_ATTRIBUTE_DIRECTORY, "directory"},   {FILE_ATTRIBUTE_REPARSE_POINT, "link"},
        {FILE_ATTRIBUTE_READONLY, "read-only"},    {FILE_ATTRIBUTE_HIDDEN, "hidden"},
        {FILE_ATTRIBUTE_SYSTEM, "system"},         {FILE_ATTRIBUTE_ARCHIVE, "archive"},
        {FILE_ATTRIBUTE_COMPRESSED, "compressed"},
    };
    std::string words;
    for (auto const & [bit, word] : known)
    {
        if ((attributes & bit) != 0)
        {
            words += (words.empty() ? "" : ", ") + std::string(word);
        }
    }
    return words.empty() ? "none" : words;
}

namespace
{

void Field(OutputStream & output, std::string const & name, std::string const & value)
{
    constexpr std::size_t column = 12;
    PrintLine(output, "  " + name + std::string(column - name.size(), ' ') + (value.empty() ? "-" : Printable(value)));
}

std::string Moment(FILETIME const & time)
{
    DateTime const moment(time);
    return moment == DateTime() ? std::string() : LocalTime(moment) + "  (" + moment.ToString().Utf8() + ")";
}

std::string DriveWords(unsigned int type)
{
    switch (type)
    {
    case DRIVE_REMOVABLE:
        return "removable";
    case DRIVE_FIXED:
        return "fixed";
    case DRIVE_REMOTE:
        return "remote";
    case DRIVE_CDROM:
        return "CD-ROM";
    case DRIVE_RAMDISK:
        return "memory";
    default:
        return "unknown";
    }
}

void PrintDrive(OutputStream & output, String const & path)
{
    File::DriveInfo drive;
    if (!File::GetDriveInfo(path, drive))
    {
        return Field(output, "Drive", "");
    }
    WCHAR fileSystem[MAX_PATH] = {};
    GetVolumeInformationW(drive.root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, fileSystem, MAX_PATH);
    Field(
        output, "Drive",
        drive.root.Utf8() + "  " + DriveWords(File::GetDriveTypeW(path)) + ", " + String(fileSystem).Utf8() + ", " +
            HumanSize(drive.freeBytesAvailable) + " of " + HumanSize(drive.totalBytes) + " free");
}

void PrintOne(OutputStream & output, String const & path, WIN32_FILE_ATTRIBUTE_DATA const & data)
{
    std::uint64_t const size = static_cast<std::uint64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
    bool const directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    Field(output, "Size", directory ? "" : Counted(size, "byte") + (size < 1024 ? "" : "  (" + HumanSize(size) + ")"));
    Field(output, "Attributes", AttributeWords(data.dwFileAttributes));
    Field(output, "Created", Moment(data.ftCreationTime));
    Field(output, "Accessed", Moment(data.ftLastAccessTime));
    Field(output, "Written", Moment(data.ftLastWriteTime));
    PrintDrive(output, path);
    Field(output, "Full", File::GetFullPath(path).Utf8());
    Field(output, "Canonical", File::GetCanonicalPath(path).Utf8());
    Field(output, "Short", File::GetShortPath(File::GetFullPath(path)).Utf8());
    Field(output, "URL", File::PathToURL(File::GetFullPath(path)).Utf8());
}

} // namespace

int PrintInfo(InfoOptions const & options, Console & console)
{
    NamedOutput output("-", console);
    int result = ExitOk;
    for (std::string const & file : options.files)
    {
        String const path = TypedPath(file);
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        {
            Complain(console, "kv info", file + ": " + String::FromError(static_cast<LONG>(GetLastError())).Utf8());
            result = ExitFailed;
            continue;
        }
        PrintLine(output, std::string_view(Printable(ShownPath(File::GetFullPath(path)))));
        PrintOne(output, path, data);
    }
    output.Finish();
    return result;
}

} // namespace kv::tools
