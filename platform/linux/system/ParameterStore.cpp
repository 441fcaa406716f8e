#include "ParameterStore.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/linux/paths/Drives.h>
#include <kvcore/platform/linux/storage/StoreFile.h>

// The database is opened for each call. Calls are rare, and so nothing is held over a fork, a changed directory or the
// end of the process.

namespace kv::platform
{

namespace
{

constexpr int busyTimeoutMs = 10'000;
constexpr LSTATUS damaged = ERROR_BADDB;

constexpr char createTable[] = "CREATE TABLE parameters ("
                               "key INTEGER PRIMARY KEY, value INTEGER, run TEXT, valueInRun INTEGER)";
constexpr char readSchema[] = "SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL";
constexpr char writeLasting[] = "INSERT INTO parameters (key, value) VALUES (?1, ?2) "
                                "ON CONFLICT (key) DO UPDATE SET value = ?2, run = NULL, valueInRun = NULL";
constexpr char writeUntilRestart[] = "INSERT INTO parameters (key, run, valueInRun) VALUES (?1, ?3, ?2) "
                                     "ON CONFLICT (key) DO UPDATE SET run = ?3, valueInRun = ?2";
constexpr char readOne[] = "SELECT CASE WHEN run = ?2 THEN valueInRun ELSE value END FROM parameters WHERE key = ?1";

/// Whether a value can be one that was written: anybody can write to the file.
bool IsNumberOf32Bits(sqlite3_stmt * row) noexcept
{
    std::int64_t const number = sqlite3_column_int64(row, 0);
    return sqlite3_column_type(row, 0) == SQLITE_INTEGER && number >= 0 && number <= std::numeric_limits<DWORD>::max();
}

class Database
{
public:
    Database() = default;
    Database(Database const &) = delete;
    Database & operator=(Database const &) = delete;
    ~Database()
    {
        sqlite3_close(database);
    }

    /// ERROR_FILE_NOT_FOUND if there is no store, and `create` does not want one.
    LSTATUS Open(char const * path, bool create, FileIdentity & file) noexcept
    {
        LSTATUS const found = FindStoreFile(path, create, file);
        if (found != ERROR_SUCCESS)
        {
            return found;
        }
        // Reading may have to roll back what a process that is no more had begun.
        int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
        if (int const code = sqlite3_open_v2(path, &database, flags, nullptr); code != SQLITE_OK)
        {
            return StatusOf(code);
        }
        sqlite3_extended_result_codes(database, 1);
        sqlite3_busy_timeout(database, busyTimeoutMs);
        sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
        LSTATUS const checked = CheckTable();
        return checked == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND) && create ? CreateTable() : checked;
    }
    sqlite3 * Get() const noexcept
    {
        return database;
    }
    LSTATUS StatusOf(int code) const noexcept
    {
        return StatusOfSqlite(code, database);
    }

private:
    /// Whether the file has this table and nothing else. ERROR_FILE_NOT_FOUND for an empty one.
    LSTATUS CheckTable() noexcept;
    LSTATUS CreateTable() noexcept
    {
        int code = sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
        if (code == SQLITE_OK && CheckTable() == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
        {
            code = sqlite3_exec(database, createTable, nullptr, nullptr, nullptr);
        }
        if (code == SQLITE_OK)
        {
            code = sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
        }
        return StatusOf(code);
    }

    sqlite3 * database = nullptr;
};

/// One run of a statement.
class Statement
{
public:
    Statement(Database const & usedDatabase, char const * sql) noexcept
        : database(usedDatabase),
          status(StatusOfPreparing(
              sqlite3_prepare_v2(usedDatabase.Get(), sql, -1, &statement, nullptr), usedDatabase.Get()))
    {
    }
    Statement(Statement const &) = delete;
    Statement & operator=(Statement const &) = delete;
    ~Statement()
    {
        sqlite3_finalize(statement);
    }
    void Bind(int place, std::int64_t number) noexcept
    {
        Note(sqlite3_bind_int64(statement, place, number));
    }
    void Bind(int place, std::string_view text) noexcept
    {
        char const * const data = text.empty() ? "" : text.data();
        Note(sqlite3_bind_text(statement, place, data, static_cast<int>(text.size()), SQLITE_STATIC));
    }
    /// True for a row. False at the end or after a failure: then Status tells which.
    bool Step() noexcept
    {
        int const code = status == ERROR_SUCCESS ? sqlite3_step(statement) : SQLITE_DONE;
        Note(code);
        return code == SQLITE_ROW && status == ERROR_SUCCESS;
    }
    LSTATUS Status() const noexcept
    {
        return status;
    }
    sqlite3_stmt * Row() const noexcept
    {
        return statement;
    }

private:
    void Note(int code) noexcept
    {
        status = status == ERROR_SUCCESS ? database.StatusOf(code) : status;
    }

    Database const & database;
    sqlite3_stmt * statement = nullptr;
    LSTATUS status;
};

LSTATUS Database::CheckTable() noexcept
{
    // Only a newer version has written one.
    Statement version(*this, "PRAGMA user_version");
    if (version.Step() && sqlite3_column_int64(version.Row(), 0) != 0)
    {
        return ERROR_OLD_WIN_VERSION;
    }
    Statement schema(*this, readSchema);
    bool const isThere = version.Status() == ERROR_SUCCESS && schema.Step();
    for (LSTATUS const status : {version.Status(), schema.Status()})
    {
        if (status != ERROR_SUCCESS)
        {
            return status;
        }
    }
    auto const * const text = isThere ? reinterpret_cast<char const *>(sqlite3_column_text(schema.Row(), 0)) : nullptr;
    if (isThere && text == nullptr)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    bool const isOurs = isThere && std::string_view(text) == createTable;
    if (isThere && (!isOurs || schema.Step()))
    {
        return damaged;
    }
    return schema.Status() != ERROR_SUCCESS ? schema.Status()
        : isThere                           ? static_cast<LSTATUS>(ERROR_SUCCESS)
                                            : static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
}

LSTATUS Read(Database const & database, UINT key, std::optional<DWORD> & value) noexcept
{
    Statement read(database, readOne);
    read.Bind(1, std::int64_t{key});
    read.Bind(2, SystemRun());
    if (!read.Step())
    {
        return read.Status();
    }
    if (sqlite3_column_type(read.Row(), 0) == SQLITE_NULL)
    {
        return ERROR_SUCCESS; // written for an earlier run of the system only
    }
    if (!IsNumberOf32Bits(read.Row()))
    {
        return damaged;
    }
    value = static_cast<DWORD>(sqlite3_column_int64(read.Row(), 0));
    return ERROR_SUCCESS;
}

LSTATUS Write(Database const & database, UINT key, DWORD value, Lifetime lifetime) noexcept
{
    Statement write(database, lifetime == Lifetime::Lasting ? writeLasting : writeUntilRestart);
    write.Bind(1, std::int64_t{key});
    write.Bind(2, std::int64_t{value});
    if (lifetime == Lifetime::UntilRestart)
    {
        write.Bind(3, SystemRun());
    }
    write.Step();
    return write.Status();
}

/// Opens the store and uses it; one that is damaged is set aside, and the use is repeated with an empty one.
template <class Use>
LSTATUS WithStore(bool create, Use && use) noexcept
try
{
    char directory[PATH_MAX];
    std::size_t length = 0;
    if (!DataDirectory(directory, length))
    {
        return ERROR_CANTOPEN;
    }
    std::string const path = std::string(directory, length) + "/parameters.db";
    LSTATUS status = damaged;
    for (int tries = 0; tries < 2 && status == damaged; ++tries)
    {
        FileIdentity file;
        {
            Database database;
            status = database.Open(path.c_str(), create, file);
            status = status == ERROR_SUCCESS ? use(database) : status;
        }
        if (status == damaged)
        {
            SetStoreAside(path, file);
        }
    }
    return status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace

std::optional<DWORD> ReadParameter(UINT key) noexcept
{
    std::optional<DWORD> value;
    LSTATUS const status = WithStore(false, [&](Database const & database) { return Read(database, key, value); });
    return status == ERROR_SUCCESS ? value : std::nullopt;
}

DWORD WriteParameter(UINT key, DWORD value, Lifetime lifetime) noexcept
{
    auto const status = static_cast<DWORD>(
        WithStore(true, [&](Database const & database) { return Write(database, key, value, lifetime); }));
    // The others speak of the registry.
    bool const isOfRegistry = status == ERROR_CANTOPEN || status == ERROR_REGISTRY_IO_FAILED || status == ERROR_BADDB;
    return isOfRegistry ? ERROR_WRITE_FAULT : status;
}

} // namespace kv::platform
