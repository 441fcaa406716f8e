#pragma once

// Where the file jobs work: a folder of their own, in memory where the system has room for it there, so that what is
// measured is the code on the way to the system and not a disk.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <unistd.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/NativePaths.h>

namespace bench
{

/// What a quick run takes instead of the full size.
inline std::size_t Scaled(std::size_t full, std::size_t quick)
{
    return std::getenv("KVBENCH_QUICK") != nullptr ? quick : full;
}

/// The scratch folder of this process, removed at its end.
class ScratchFolder
{
public:
    static std::filesystem::path const & Path()
    {
        static ScratchFolder const folder;
        return folder.path;
    }

    /// The library's form of the path of something in it.
    static String Name(std::filesystem::path const & relative)
    {
        return kv::platform::PathFromNative((Path() / relative).native());
    }

private:
    ScratchFolder()
    {
        std::error_code error;
        std::filesystem::path const memory = "/dev/shm";
        std::filesystem::space_info const space = std::filesystem::space(memory, error);
        bool const roomy = !error && space.available > (std::uintmax_t(5) << 29);
        path = (roomy ? memory : std::filesystem::temp_directory_path()) / ("kvbench-" + std::to_string(getpid()));
        std::filesystem::create_directory(path);
    }
    ~ScratchFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }

    std::filesystem::path path;
};

} // namespace bench
