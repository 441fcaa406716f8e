#include <kvcore/examples/storyboard/LastProject.h>

#include <kvcore/config/SysRegKey.h>
#include <kvcore/core/KVUnknown.h>
#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/ProjectStream.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/tools/support/CountingStreams.h>
#include <kvcore/tools/support/Paths.h>

namespace Storyboard
{

namespace
{

constexpr WCHAR const * keyName = TEXT("Software\\KVCore\\storyboard");
constexpr WCHAR const * projectName = TEXT("LastProject");
constexpr WCHAR const * fileName = TEXT("LastFile");

/// A project as an object among others. Its objects are a graph of their own within it, so that they are read within
/// the limits of a project whatever stream they come from.
class KeptProject : public KVUnknown, public ISerializable
{
public:
    KeptProject() = default;
    explicit KeptProject(Project const & project) : written(&project) {}

    void Read(SerializingInputStream & stream, short) override
    {
        kv::tools::CountingInputStream counted(stream);
        ProjectInputStream graph(ProjectFactory(), counted);
        loaded.project = Ptr<Project>::Make();
        graph.Read(*loaded.project);
        loaded.sharing = graph.Statistics();
        loaded.sizes.graph = static_cast<std::int64_t>(counted.Count());
    }
    void Write(SerializingOutputStream & stream) const override
    {
        SerializingOutputStream graph(ProjectFactory(), stream);
        graph.Write(*written);
    }
    short GetVersion() const override
    {
        return 1;
    }

    LoadedProject loaded;

private:
    Project const * written = nullptr;
};

class Factory : public ObjectFactory
{
public:
    Factory()
    {
        RegisterTypeAs<KeptProject>(*this, "Storyboard::KeptProject");
    }
};

[[noreturn]] void FailDamaged(String const & text, int code)
{
    throw Failure{kv::tools::ExitDamaged, Text(TEXT_LAST_DAMAGED, text.Utf8(), std::to_string(code))};
}

} // namespace

bool KeepLastProject(Project const & project, std::filesystem::path const & file)
{
    SysRegKey key = SysRegKey(HKEY_CURRENT_USER).CreateSubkey(keyName, 0, KEY_ALL_ACCESS, nullptr);
    Ptr<KeptProject> const kept = Ptr<KeptProject>::Make(project);
    String const path = kv::tools::LibraryPath(std::filesystem::absolute(file));
    return key.WriteObject(projectName, Factory(), *kept) && key.SetString(fileName, path);
}

LastProject LoadLastProject()
{
    SysRegKey const key = SysRegKey(HKEY_CURRENT_USER).OpenSubkey(keyName, KEY_READ);
    DWORD type = 0;
    if (!key.GetValueType(projectName, type))
    {
        throw Failure{kv::tools::ExitFailed, Text(TEXT_NO_LAST)};
    }
    Ptr<KeptProject> const kept = Ptr<KeptProject>::Make();
    try
    {
        if (!key.ReadObject(projectName, Factory(), *kept))
        {
            FailDamaged(TEXT("no binary value"), 3);
        }
    }
    catch (StreamBase::Exception const & failure)
    {
        FailDamaged(failure.text, failure.code);
    }
    LastProject last{kept->loaded, {}};
    std::string bytes;
    key.GetBinary(projectName, bytes);
    last.loaded.sizes.compressed = static_cast<std::int64_t>(bytes.size());
    String path;
    if (key.GetString(fileName, path))
    {
        last.file = Printable(kv::tools::ShownPath(path));
    }
    return last;
}

} // namespace Storyboard
