#pragma once

#include <filesystem>
#include <string>

#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/ScratchFolder.h>

namespace kv::test
{

/// A scratch folder that is the current directory while this lives, with a library under names that others look for.
/// Its code leaves a mark there when it runs.
class PlantedFolder
{
public:
    PlantedFolder() : before(std::filesystem::current_path())
    {
        std::filesystem::current_path(folder.Path());
    }
    ~PlantedFolder()
    {
        std::filesystem::current_path(before);
    }
    PlantedFolder(PlantedFolder const &) = delete;
    PlantedFolder & operator=(PlantedFolder const &) = delete;

    /// Puts the library there under a name. Gives its path.
    std::filesystem::path Plant(std::string const & name) const
    {
        std::filesystem::path const place = folder / name;
        std::filesystem::create_directories(place.parent_path());
        std::filesystem::copy_file(Library(), place);
        return place;
    }
    /// Whether its code has run. Takes the mark away.
    bool TakeMark() const
    {
        return std::filesystem::remove(folder / "planted-code-ran");
    }

    ScratchFolder const folder;

private:
    /// In a folder of its own, so that no search finds it.
    static std::filesystem::path Library()
    {
        WCHAR program[1024] = {};
        GetModuleFileNameW(nullptr, program, 1024);
        WString path = program;
        path.resize(path.find_last_of('\\'));
        path += TEXT("\\planted\\PlantedModule");
        std::string const native = kv::platform::PathToNative(path);
        return std::filesystem::exists(native + ".so") ? native + ".so" : native + ".dll";
    }

    std::filesystem::path const before;
};

} // namespace kv::test
