#pragma once

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include <kvcore/core/String.h>
#include <kvcore/platform/NativePaths.h>

/// A folder of its own for a test, removed at its end with all that is in it.
class ScratchFolder
{
public:
    ScratchFolder()
    {
        std::random_device random;
        do
        {
            path = std::filesystem::temp_directory_path() / ("kvcore-test-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(path));
        path = std::filesystem::canonical(path);
    }
    ~ScratchFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
    ScratchFolder(ScratchFolder const &) = delete;
    ScratchFolder & operator=(ScratchFolder const &) = delete;

    std::filesystem::path const & Path() const
    {
        return path;
    }
    std::filesystem::path operator/(std::filesystem::path const & name) const
    {
        return path / name;
    }

    /// The folder's path, or that of something in it, in the library's form: backslashes between names.
    String Name() const
    {
        std::u8string const native = path.u8string();
        return kv::platform::PathFromNative(std::string(native.begin(), native.end()));
    }
    String Name(std::string const & relative) const
    {
        return Name(String::FromUtf8(relative));
    }
    String Name(String const & relative) const
    {
        return Name() + TEXT("\\") + relative;
    }

    /// Writes a file of these bytes, and the folders above it. Gives its path.
    std::filesystem::path Write(std::filesystem::path const & name, std::string const & bytes) const
    {
        std::filesystem::path const file = path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        stream.close();
        if (!stream)
        {
            throw std::runtime_error("cannot write " + file.string());
        }
        return file;
    }

    /// The bytes of a file.
    std::string Read(std::filesystem::path const & name) const
    {
        std::ifstream stream(path / name, std::ios::binary);
        if (!stream)
        {
            throw std::runtime_error("cannot read " + (path / name).string());
        }
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }

private:
    std::filesystem::path path;
};
