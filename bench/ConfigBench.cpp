// Settings in sections beside QSettings: typed access in memory, and the file.

#include <string>
#include <vector>

#include <QtCore/QSettings>
#include <QtCore/QString>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/platform/win32.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

constexpr int sectionCount = 100;
constexpr int keyCount = 100;

/// The same settings in both worlds, with names as programs have them.
struct Names
{
    std::vector<String> sections;
    std::vector<String> keys;
    std::vector<QString> paths; ///< section/key, section by section
};

Names const & SharedNames()
{
    static Names const names = []
    {
        Names made;
        for (int i = 0; i < keyCount; i++)
        {
            made.keys.push_back(String::FromUtf8("SomeSetting" + std::to_string(i * 7919 % keyCount)));
        }
        for (int i = 0; i < sectionCount; i++)
        {
            std::string const section = "Section" + std::to_string(i * 7919 % sectionCount);
            made.sections.push_back(String::FromUtf8(section));
            for (String const & key : made.keys)
            {
                made.paths.push_back(QString::fromStdString(section + "/" + key.Utf8()));
            }
        }
        return made;
    }();
    return names;
}

/// Sets every key to an integer of its own and reads it back as one.
long long SetAndGet(SectionedConfigData & data, int start)
{
    long long sum = 0;
    Names const & names = SharedNames();
    for (String const & section : names.sections)
    {
        for (String const & key : names.keys)
        {
            data.SetInteger(section, key, start++);
        }
    }
    for (String const & section : names.sections)
    {
        for (String const & key : names.keys)
        {
            int value = 0;
            data.GetInteger(section, key, value);
            sum += value;
        }
    }
    return sum;
}

long long SetAndGet(QSettings & settings, int start)
{
    long long sum = 0;
    for (QString const & path : SharedNames().paths)
    {
        settings.setValue(path, start++);
    }
    for (QString const & path : SharedNames().paths)
    {
        sum += settings.value(path).toInt();
    }
    return sum;
}

QString FileOf(char const * name)
{
    return QString::fromStdString((bench::ScratchFolder::Path() / name).string());
}

void AddMemory()
{
    static SectionedConfigData data;
    static QSettings settings(FileOf("memory.ini"), QSettings::IniFormat);
    bench::Require(SetAndGet(data, 5) == SetAndGet(settings, 5), "ConfigValues");
    std::size_t const bytes = 2 * sectionCount * keyCount * sizeof(int);
    bench::Add("ConfigValues/set-get/ours", bytes, [] { benchmark::DoNotOptimize(SetAndGet(data, 7)); });
    bench::Add("ConfigValues/set-get/QSettings", bytes, [] { benchmark::DoNotOptimize(SetAndGet(settings, 7)); });
}

/// A new profile of all settings, written, and read by somebody else.
int WriteAndRead(SectionedConfigData const & data)
{
    static String const path = bench::ScratchFolder::Name("ours.ini");
    DeleteFileW(path.c_str());
    data.WriteWindowsProfile(path);
    SectionedConfigData read;
    read.ReadWindowsProfile(path);
    return read.GetNumKeys(SharedNames().sections.back()) * read.GetNumSections();
}

int WriteAndReadQt()
{
    static QString const path = FileOf("qt.ini");
    std::filesystem::remove(path.toStdString());
    {
        QSettings written(path, QSettings::IniFormat);
        int value = 5;
        for (QString const & name : SharedNames().paths)
        {
            written.setValue(name, value++);
        }
        written.sync();
    }
    QSettings const read(path, QSettings::IniFormat);
    return static_cast<int>(read.allKeys().size());
}

void AddFile()
{
    static SectionedConfigData data;
    SetAndGet(data, 5);
    bench::Require(WriteAndRead(data) == WriteAndReadQt(), "ConfigFile");
    std::size_t const bytes = std::filesystem::file_size(bench::ScratchFolder::Path() / "ours.ini");
    bench::Add("ConfigFile/write-read/ours", bytes, [] { benchmark::DoNotOptimize(WriteAndRead(data)); });
    bench::Add("ConfigFile/write-read/QSettings", bytes, [] { benchmark::DoNotOptimize(WriteAndReadQt()); });
}

bench::Source const memory(AddMemory);
bench::Source const file(AddFile);

} // namespace
