#pragma once

// A data directory of the fuzz target's own, and a stored database in it that inputs damage.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

#include <sqlite3.h>

#include "Fuzz.h"

namespace fuzz
{

/// Lies in memory, where there is a file system for that, and goes with the process.
class DataDirectory
{
public:
    DataDirectory()
        : path(
              std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/kvfuzz-data-" +
              std::to_string(getpid()))
    {
        std::filesystem::create_directories(path);
        setenv("XDG_DATA_HOME", path.c_str(), 1);
    }
    ~DataDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string File(std::string const & name) const
    {
        return path + "/kvcore/" + name;
    }

private:
    std::string const path;
};

inline std::string ReadWhole(std::string const & path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// What an input does to a healthy store, by its first byte: takes its place, changes some of its bytes, or runs
/// statements on it as another program would. The result is another file than the one before.
class DamagedStore
{
public:
    DamagedStore(std::string filePath, std::string healthyBytes)
        : path(std::move(filePath)), healthy(std::move(healthyBytes))
    {
    }

    void Make(std::string const & input)
    {
        char const kind = input.empty() ? '\0' : static_cast<char>(input[0] % 3);
        std::string const rest = input.substr(input.empty() ? 0 : 1);
        Place(kind == 0 ? rest : kind == 1 ? Patched(rest) : healthy);
        if (kind == 2)
        {
            Execute(rest);
        }
    }
    /// How many stores lie aside; they are removed.
    int TakeAside() const
    {
        int count = 0;
        for (int number = 1; std::filesystem::remove(path + ".damaged-" + std::to_string(number)); ++number)
        {
            std::filesystem::remove(path + ".damaged-" + std::to_string(number) + "-wal");
            std::filesystem::remove(path + ".damaged-" + std::to_string(number) + "-journal");
            ++count;
        }
        return count;
    }

private:
    void Place(std::string const & bytes) const
    {
        for (char const * const ending : {"", "-wal", "-shm", "-journal"})
        {
            std::filesystem::remove(path + ending);
        }
        std::string const fresh = path + ".fresh";
        std::ofstream(fresh, std::ios::binary) << bytes;
        std::filesystem::rename(fresh, path);
    }
    /// Runs of three bytes are a place, in two bytes, and what stands there.
    std::string Patched(std::string const & patches) const
    {
        std::string bytes = healthy;
        for (std::size_t i = 0; i + 2 < patches.size(); i += 3)
        {
            auto const low = static_cast<unsigned char>(patches[i]);
            auto const high = static_cast<unsigned char>(patches[i + 1]);
            bytes[static_cast<std::size_t>(high << 8 | low) % bytes.size()] = patches[i + 2];
        }
        return bytes;
    }
    void Execute(std::string const & statements) const
    {
        sqlite3 * database = nullptr;
        if (sqlite3_open(path.c_str(), &database) == SQLITE_OK)
        {
            // Statements of an input may run without end, or make a file that fills the memory.
            int steps = 0;
            sqlite3_progress_handler(
                database, 1000, [](void * count) { return ++*static_cast<int *>(count) > 100 ? 1 : 0; }, &steps);
            sqlite3_limit(database, SQLITE_LIMIT_ATTACHED, 0);
            sqlite3_limit(database, SQLITE_LIMIT_LENGTH, 1 << 20);
            sqlite3_exec(database, "PRAGMA max_page_count = 100; PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
            sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr);
        }
        sqlite3_close(database);
    }

    std::string const path;
    std::string const healthy;
};

} // namespace fuzz
