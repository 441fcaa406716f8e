#include <kvcore/tools/support/NewFile.h>

#include <cstdio>
#include <random>

namespace kv::tools
{

namespace
{

constexpr std::string_view suffix = ".tmp";

bool IsTemporary(std::string_view name, std::string_view prefix)
{
    constexpr std::size_t digits = 16;
    return name.size() == prefix.size() + digits + suffix.size() && name.starts_with(prefix) &&
        name.ends_with(suffix) &&
        name.substr(prefix.size(), digits).find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

} // namespace

bool NewFile::IsOwnName(std::string_view name)
{
    return IsTemporary(name, ".kvsave-");
}

bool NewFile::IsPlatformName(std::string_view name)
{
    return IsTemporary(name, ".kv-");
}

std::filesystem::path NewFile::NewName()
{
    std::random_device random;
    char name[40];
    std::snprintf(name, sizeof name, ".kvsave-%08x%08x.tmp", unsigned(random()), unsigned(random()));
    return name;
}

} // namespace kv::tools
