#include "StoredFiles.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <gtest/gtest.h>

namespace kv::test
{

namespace
{

std::filesystem::path PathOf(std::string const & target, std::string const & name)
{
    return std::filesystem::path(KVCORE_TEST_STORED_FILES) / target / name;
}

} // namespace

std::vector<std::string> const & Targets()
{
    static std::vector<std::string> const targets = {"linux", "windows-x64", "windows-x86"};
    return targets;
}

std::string Stored(std::string const & target, std::string const & name)
{
    std::ifstream stream(PathOf(target, name), std::ios::binary);
    if (!stream)
    {
        throw std::runtime_error("cannot read " + PathOf(target, name).string());
    }
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void ExpectAsStored(std::string const & name, std::string const & bytes)
{
    if (std::getenv("KVCORE_STORE_FILES") != nullptr)
    {
        std::filesystem::create_directories(PathOf(KVCORE_TEST_TARGET, name).parent_path());
        std::ofstream(PathOf(KVCORE_TEST_TARGET, name), std::ios::binary) << bytes;
    }
    EXPECT_EQ(bytes, Stored(KVCORE_TEST_TARGET, name)) << name;
}

} // namespace kv::test
