#include <kvcore/examples/storyboard/Settings.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/files/File.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Text.h>

namespace Storyboard
{

namespace
{

struct Setting
{
    char const * name;
    WCHAR const * section;
    WCHAR const * key;
    int largest;
    int without; ///< the value where the file has none
};

constexpr Setting known[] = {
    {"progress.quiet", TEXT("progress"), TEXT("quiet"), 1, 0},
    {"show.summary", TEXT("show"), TEXT("summary"), 1, 0},
    {"show.width", TEXT("show"), TEXT("width"), Settings::maxWidth, -1},
};

SectionedConfigData ReadFile(String const & path)
{
    SectionedConfigData data;
    try
    {
        data.ReadWindowsProfile(path);
    }
    catch (SectionedConfigData::Exception const & failure)
    {
        std::string const why =
            failure.kind == 0 || !failure.text.empty() ? failure.text.Utf8() : Text(TEXT_EMPTY_SECTION);
        throw Failure{
            failure.kind == 0 ? kv::tools::ExitIo : kv::tools::ExitDamaged,
            Text(TEXT_CANNOT_READ_SETTINGS, Printable(kv::tools::ShownPath(path)), why)};
    }
    return data;
}

/// Values out of range are as if they were not there.
int ValueOf(SectionedConfigData const & data, Setting const & setting)
{
    int value = setting.without;
    data.GetInteger(setting.section, setting.key, value);
    return value < 0 || value > setting.largest ? setting.without : value;
}

void PrintSetting(kv::tools::Console & console, SectionedConfigData const & data, Setting const & setting)
{
    int const value = ValueOf(data, setting);
    std::string const shown = value < 0 ? Text(TEXT_AS_TERMINAL) : std::to_string(value);
    kv::tools::PrintLine(console.output, std::string_view(setting.name + (" = " + shown)));
}

/// One key by itself, so that all else in the file stays as it is.
void SetSetting(String const & path, Setting const & setting, std::string const & value)
{
    int number = -1;
    if (value.empty() || !String::FromUtf8(value).ParseNum(number) || number < 0 || number > setting.largest)
    {
        throw Failure{
            kv::tools::ExitUsage, Text(TEXT_NUMBER_RANGE, setting.name, "0", std::to_string(setting.largest))};
    }
    String const text = String::FromNum(number);
    if (!WritePrivateProfileStringW(setting.section, setting.key, text.c_str(), path.c_str()))
    {
        std::string const why = String::FromError(GetLastError()).Utf8();
        throw Failure{kv::tools::ExitIo, Text(TEXT_CANNOT_WRITE_SETTINGS, Printable(kv::tools::ShownPath(path)), why)};
    }
}

} // namespace

String SettingsPath(std::string const & typed)
{
    if (!typed.empty())
    {
        // A name without a folder would mean another directory to the profile calls.
        return File::GetFullPath(kv::tools::TypedPath(typed));
    }
    WCHAR folder[MAX_PATH];
    bool const found = SHGetSpecialFolderPathW(nullptr, folder, CSIDL_APPDATA, TRUE) != FALSE;
    return found ? String(WString(folder) + TEXT("\\storyboard.ini")) : String();
}

Settings ReadSettings(String const & path)
{
    if (path.empty())
    {
        return {};
    }
    SectionedConfigData const data = ReadFile(path);
    return {ValueOf(data, known[0]) != 0, ValueOf(data, known[1]) != 0, ValueOf(data, known[2])};
}

int RunSettings(
    kv::tools::Console & console, String const & path, std::string const & name,
    std::optional<std::string> const & value)
{
    SectionedConfigData const data = ReadFile(path);
    bool found = name.empty();
    for (Setting const & setting : known)
    {
        if (!name.empty() && name != setting.name)
        {
            continue;
        }
        found = true;
        if (value)
        {
            SetSetting(path, setting, *value);
        }
        else
        {
            PrintSetting(console, data, setting);
        }
    }
    if (!found)
    {
        throw Failure{kv::tools::ExitUsage, Text(TEXT_NO_SETTING, Printable(name))};
    }
    return kv::tools::ExitOk;
}

} // namespace Storyboard
