#pragma once

// The store behind the registry: one SQLite database for each user, and the statements that work on it.
//
// All of it happens under one lock for the process, RegistryLock, which is held from the look at a handle to the end of
// the call. A store opens when it is first used, and again after it was closed: before a fork, since neither of the
// two processes may go on with a connection that both have, and at the end of the process.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <kvcore/platform/include/winreg.h>
#include <kvcore/platform/linux/storage/StoreFile.h>

struct sqlite3;
struct sqlite3_stmt;

namespace kv::platform
{

std::mutex & RegistryLock() noexcept;

using KeyId = std::int64_t;

/// The keys that every store has from the start, and keeps. All others have greater numbers.
enum FixedKey : KeyId
{
    noKey = 0,
    usersKey = 1,
    machineKey,
    dynamicDataKey,
    currentUserKey,
    classesKey,
    currentConfigKey,
    firstFreeKey = 100,
};

enum class Sql
{
    Begin,
    Commit,
    Rollback,
    FindKey,
    KeyExists,
    ParentOf,
    InsertKey,
    TouchKey,
    HasChildren,
    DeleteKey,
    DeleteKeyValues,
    SubtreeHasFixed,
    DeleteSubtreeValues,
    DeleteSubtree,
    GetValue,
    SetValue,
    DeleteValue,
    ValueAt,
    ValueAfter,
    KeyAt,
    KeyAfter,
    KeyInfo,
    ChildrenInfo,
    ValuesInfo,
    DataVersion,
    NameDigest,
    ValueDigest,
    Count,
};

class RegistryStore;

/// One run of a prepared statement. The statement is free again at the end of it.
class Statement
{
public:
    /// `rowKinds` are the kinds of the columns, as RegistrySql.h has them.
    Statement(RegistryStore & usedStore, sqlite3_stmt * prepared, char const * rowKinds) noexcept
        : store(usedStore), statement(prepared), kinds(rowKinds)
    {
    }
    Statement(Statement const &) = delete;
    Statement & operator=(Statement const &) = delete;
    ~Statement();

    Statement & Bind(std::int64_t number) noexcept;
    /// The bytes stay the caller's, and must stay as they are until the end of the run.
    Statement & Bind(std::string_view bytes) noexcept;
    Statement & BindText(std::string_view text) noexcept;
    Statement & BindNull() noexcept;

    /// True for a row. False at the end or after a failure: then Result tells which. A row with a column of another
    /// kind than it must have is damage.
    bool Step() noexcept;
    /// ERROR_SUCCESS unless a step failed, or there was no memory for binding.
    LSTATUS Result() const noexcept
    {
        return result;
    }
    /// Runs to the end.
    LSTATUS Run() noexcept;

    std::int64_t Number(int column) const noexcept;
    std::string_view Bytes(int column) const noexcept;
    bool IsNull(int column) const noexcept;

private:
    Statement & NoteBinding(int code) noexcept;
    bool HasKind(int column, char kind) const noexcept;

    RegistryStore & store;
    sqlite3_stmt * const statement;
    char const * const kinds;
    int bound = 0;
    LSTATUS result = 0;
};

/// What a change did to keys or values, for those who wait for changes.
struct KeyChange
{
    KeyId key;    ///< the key whose values changed, or below which keys were made or deleted
    DWORD kinds;  ///< of REG_NOTIFY_CHANGE_NAME and REG_NOTIFY_CHANGE_LAST_SET
    bool deletes; ///< whether keys were deleted
};

/// Once a store has turned out to be damaged, or another file has taken its place, it is dead: the numbers of its keys
/// mean nothing in the store that comes next. The call that finds damage says ERROR_BADDB, and the files are set aside
/// at its end; further calls through handles of the store say ERROR_KEY_DELETED.
///
/// A store that cannot be opened because the disk is full is read from a copy in memory, which each call makes anew,
/// and whose changes fail with ERROR_DISK_FULL.
class RegistryStore
{
public:
    explicit RegistryStore(std::string const & dataDirectory);
    RegistryStore(RegistryStore const &) = delete;
    RegistryStore & operator=(RegistryStore const &) = delete;
    ~RegistryStore();

    /// The store of the data directory that the environment names now, open; null with `result` set.
    static std::shared_ptr<RegistryStore> Current(LSTATUS & result);

    /// Opens it if it is closed. A store that is newer, busy or out of reach is tried again the next time.
    LSTATUS Open();
    void Close() noexcept;
    bool IsOpen() const noexcept
    {
        return database != nullptr;
    }

    /// Comes before each change: ERROR_KEY_DELETED if another process has set the store aside or removed it, so that
    /// nothing is written where nobody reads it.
    LSTATUS CheckPlace() noexcept;

    Statement Use(Sql which) noexcept;
    /// Whether the last statement that changes something changed a row, and the number of a key that it made.
    bool HasChanged() const noexcept;
    KeyId LastInserted() const noexcept;
    bool IsInTransaction() const noexcept;

    /// Puts all changes so far on the disk.
    LSTATUS Flush() noexcept;

    /// Differs from an earlier count if anything changed since, by this process or another.
    std::uint64_t ChangeCount() noexcept;
    /// The same for changes by other processes alone.
    std::uint64_t ForeignChangeCount() noexcept;
    /// Notes a change of this process, and sets the events of those who wait for it.
    void NoteChange(KeyChange const & change) noexcept;

    /// What a result of SQLite means for a call. Damage makes the store dead.
    LSTATUS StatusOf(int code) noexcept;
    /// A row cannot be what it is: the same.
    LSTATUS NoteDamage() noexcept;
    bool IsDead() const noexcept
    {
        return isDead;
    }
    /// Closes a dead store and, where its files are damaged, gives them another name. No statement may be in use.
    void Leave() noexcept;

private:
    LSTATUS OpenFile() noexcept;
    LSTATUS OpenCopy() noexcept;
    LSTATUS CopyFile() noexcept;
    LSTATUS Prepare() noexcept;
    LSTATUS CheckVersion(std::int64_t & version) noexcept;
    LSTATUS CreateTables() noexcept;
    LSTATUS FillNewStore() noexcept;
    LSTATUS CheckTables() noexcept;
    LSTATUS CheckKeys() noexcept;
    LSTATUS CheckInitialKeys() noexcept;
    LSTATUS CheckNumber() noexcept;
    LSTATUS PurgeVolatile() noexcept;
    LSTATUS Execute(char const * text) noexcept;
    LSTATUS ReadNumber(char const * query, std::int64_t & number, bool withRun = false) noexcept;

    std::string const path;
    sqlite3 * database = nullptr;
    std::array<sqlite3_stmt *, static_cast<std::size_t>(Sql::Count)> statements{};
    std::int64_t storeNumber = 0; ///< of the database, so that another one in its place is noticed
    FileIdentity file;
    std::uint64_t changes = 0;
    std::uint64_t foreignChanges = 0;
    std::int64_t dataVersion = 0;
    bool isCopy = false;
    bool isDead = false;
    bool isDamaged = false;
};

/// A change of several rows, as a whole or not at all.
class Transaction
{
public:
    explicit Transaction(RegistryStore & changedStore) noexcept;
    Transaction(Transaction const &) = delete;
    Transaction & operator=(Transaction const &) = delete;
    ~Transaction();

    /// What beginning it gave.
    LSTATUS Result() const noexcept
    {
        return result;
    }
    LSTATUS Commit(KeyChange const & change) noexcept;

private:
    static LSTATUS Begin(RegistryStore & store) noexcept;

    RegistryStore & store;
    LSTATUS const result;
    bool isOpen;
};

/// The system's time as it is stored with keys and values. No two of a process are the same.
std::int64_t WriteTime() noexcept;

/// The stored form of a name: its elements as they lie in memory.
std::string_view NameBytes(std::u16string_view name) noexcept;

/// What a name is found and ordered by: its lower-case form, greater byte first.
class FoldedName
{
public:
    explicit FoldedName(std::u16string_view name);
    operator std::string_view() const noexcept
    {
        return text;
    }

private:
    std::string text;
};

} // namespace kv::platform
