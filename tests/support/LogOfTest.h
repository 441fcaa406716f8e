#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <kvcore/core/String.h>
#include <kvcore/frame/KVLogFile.h>
#include <kvcore/platform/NativePaths.h>
#include <support/ScratchFolder.h>

namespace kv::test
{

/// What is logged to the process's one log in the life of this object.
class LogOfTest
{
public:
    LogOfTest() : begin("test log " + std::to_string(++Count()) + " begins"), end(begin + " and ends")
    {
        if (KVLogFile::Object().GetFilename().empty())
        {
            KVLogFile::Object().SetFilename(Folder().Name("log.txt").c_str());
        }
        KVLogFile::Object().AddLine(String::FromUtf8(begin));
    }

    /// The texts of the lines so far, without stamps, each with a line feed. Waits until they are in the file.
    String Texts()
    {
        KVLogFile::Object().AddLine(String::FromUtf8(end));
        std::string bytes;
        while (bytes.find(end + "\r\n") == std::string::npos)
        {
            std::this_thread::yield();
            std::ifstream file(Path(), std::ios::binary);
            bytes.assign(std::istreambuf_iterator<char>(file), {});
        }
        std::size_t at = bytes.find(begin + "\r\n") + begin.size() + 2;
        std::string texts;
        for (std::size_t next; (next = bytes.find("\r\n", at)) != std::string::npos; at = next + 2)
        {
            std::string const line = bytes.substr(at, next - at);
            if (line.ends_with(end))
            {
                break;
            }
            texts += line.substr(stampLength) + "\n";
        }
        return String::FromUtf8(texts);
    }

private:
    static constexpr std::size_t stampLength = 22; // "[00:00:00] 0123456789 "

    static std::filesystem::path Path()
    {
        std::string const native = kv::platform::PathToNative(KVLogFile::Object().GetFilename());
        return std::u8string(native.begin(), native.end());
    }
    static int & Count()
    {
        static int count = 0;
        return count;
    }
    static ScratchFolder & Folder()
    {
        static ScratchFolder folder;
        return folder;
    }

    std::string begin;
    std::string end;
};

} // namespace kv::test
