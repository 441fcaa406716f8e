#include "ParameterStore.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include <sqlite3.h>

#include <kvcore/platform/linux/paths/Drives.h>

// The database is opened for each call. Calls are rare, and so nothing is held over a fork, a changed directory or the
// end of the process.

namespace kv::platform
{

namespace
{

constexpr int patienceInMilliseconds = 10'000;

constexpr char createTable[] = "CREATE TABLE IF NOT EXISTS parameters ("
                               "key INTEGER PRIMARY KEY, value INTEGER, run TEXT, valueInRun INTEGER)";
constexpr char writeLasting[] = "INSERT INTO parameters (key, value) VALUES (?1, ?2) "
                                "ON CONFLICT (key) DO UPDATE SET value = ?2, run = NULL, valueInRun = NULL";
constexpr char writeUntilRestart[] = "INSERT INTO parameters (key, run, valueInRun) VALUES (?1, ?3, ?2) "
                                     "ON CONFLICT (key) DO UPDATE SET run = ?3, valueInRun = ?2";
constexpr char readOne[] = "SELECT CASE WHEN run = ?2 THEN valueInRun ELSE value END FROM parameters WHERE key = ?1";

/// What tells one run of the system, from its start to its end, from the others.
class RunOfSystem
{
public:
    RunOfSystem() noexcept
    {
        if (std::FILE * const file = std::fopen("/proc/sys/kernel/random/boot_id", "re"))
        {
            if (std::fgets(text, sizeof(text), file) == nullptr)
            {
                text[0] = 0;
            }
            std::fclose(file);
        }
    }
    char const * Text() const noexcept
    {
        return text;
    }

private:
    char text[64] = {};
};

class Database
{
public:
    explicit Database(int openFlags) noexcept
    {
        char path[PATH_MAX];
        std::size_t length = 0;
        constexpr char name[] = "/parameters.db";
        if (!DataDirectory(path, length) || length + sizeof(name) > sizeof(path))
        {
            return;
        }
        std::memcpy(path + length, name, sizeof(name));
        isOpen = sqlite3_open_v2(path, &database, openFlags | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK;
        if (isOpen)
        {
            sqlite3_busy_timeout(database, patienceInMilliseconds);
        }
    }
    Database(Database const &) = delete;
    Database & operator=(Database const &) = delete;
    ~Database()
    {
        sqlite3_close(database);
    }
    bool IsOpen() const noexcept
    {
        return isOpen;
    }
    bool Run(char const * sql) noexcept
    {
        return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    sqlite3 * Get() const noexcept
    {
        return database;
    }

private:
    sqlite3 * database = nullptr;
    bool isOpen = false;
};

class Statement
{
public:
    Statement(Database const & database, char const * sql) noexcept
    {
        if (sqlite3_prepare_v2(database.Get(), sql, -1, &statement, nullptr) != SQLITE_OK)
        {
            statement = nullptr;
        }
    }
    Statement(Statement const &) = delete;
    Statement & operator=(Statement const &) = delete;
    ~Statement()
    {
        sqlite3_finalize(statement);
    }
    void Bind(int place, std::int64_t number) noexcept
    {
        sqlite3_bind_int64(statement, place, number);
    }
    void Bind(int place, char const * text) noexcept
    {
        sqlite3_bind_text(statement, place, text, -1, SQLITE_STATIC);
    }
    int Step() noexcept
    {
        return statement != nullptr ? sqlite3_step(statement) : SQLITE_ERROR;
    }
    /// Nothing if the result is no number of 32 bits: anybody can write to the file.
    std::optional<DWORD> Number() const noexcept
    {
        std::int64_t const number = sqlite3_column_int64(statement, 0);
        bool const fits = number >= 0 && number <= std::int64_t{std::numeric_limits<DWORD>::max()};
        return sqlite3_column_type(statement, 0) == SQLITE_INTEGER && fits
            ? std::optional<DWORD>(static_cast<DWORD>(number))
            : std::nullopt;
    }

private:
    sqlite3_stmt * statement = nullptr;
};

} // namespace

std::optional<DWORD> ReadParameter(UINT key) noexcept
{
    Database const database(SQLITE_OPEN_READONLY);
    if (!database.IsOpen())
    {
        return std::nullopt;
    }
    RunOfSystem const run;
    Statement read(database, readOne);
    read.Bind(1, key);
    read.Bind(2, run.Text());
    return read.Step() == SQLITE_ROW ? read.Number() : std::nullopt;
}

bool WriteParameter(UINT key, DWORD value, Lifetime lifetime) noexcept
{
    Database database(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!database.IsOpen() || !database.Run(createTable))
    {
        return false;
    }
    RunOfSystem const run;
    Statement write(database, lifetime == Lifetime::Lasting ? writeLasting : writeUntilRestart);
    write.Bind(1, key);
    write.Bind(2, std::int64_t{value});
    write.Bind(3, run.Text()); // where the statement has no such place this does nothing
    return write.Step() == SQLITE_DONE;
}

} // namespace kv::platform
