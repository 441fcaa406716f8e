#pragma once

#include <string>

#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <support/ScratchFolder.h>

/// A scratch folder whose files are named by Win32 paths.
class ScratchPaths : public ScratchFolder
{
public:
    /// The folder itself, without a separator at its end.
    WString Root() const
    {
        return FromNative(Path());
    }
    /// A path below it. The separator is put between.
    WString operator()(WString const & name) const
    {
        return Root() + TEXT("\\") + name;
    }
    /// A file of a name in UTF-8 with these bytes, made by the system's own means.
    WString Make(std::string const & name, std::string const & bytes = "") const
    {
        return FromNative(Write(FromUtf8(name), bytes));
    }
    /// A directory, with those above it.
    WString MakeDirectory(std::string const & name) const
    {
        std::filesystem::create_directories(Path() / FromUtf8(name));
        return FromNative(Path() / FromUtf8(name));
    }

    static std::filesystem::path FromUtf8(std::string const & name)
    {
        return std::u8string(name.begin(), name.end());
    }
    static WString FromNative(std::filesystem::path const & path)
    {
        auto const text = path.u8string();
        return kv::platform::PathFromNative(std::string(text.begin(), text.end()));
    }
};
