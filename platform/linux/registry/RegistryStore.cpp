#include "RegistryStore.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include <pthread.h>
#include <sys/stat.h>

#include <sqlite3.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/timeapi.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/paths/Drives.h>
#include <kvcore/platform/linux/registry/KeyNotices.h>
#include <kvcore/platform/linux/registry/RegistrySql.h>

namespace kv::platform
{

static_assert(std::size(sqlTexts) == static_cast<std::size_t>(Sql::Count));

namespace
{

constexpr int busyTimeoutMs = 5000;

constexpr LSTATUS damaged = ERROR_BADDB;

/// All stores of the process, and the one that the predefined roots lead to.
struct Stores
{
    std::mutex mutex;
    std::vector<RegistryStore *> all;
    std::shared_ptr<RegistryStore> current;
    std::string configured; ///< the setting that `current` was found by

    void CloseAll() noexcept
    {
        for (RegistryStore * const store : all)
        {
            store->Close();
        }
    }
};

Stores & Known()
{
    static Stores & stores = *new Stores;
    return stores;
}

// Neither of two processes may go on with a connection that both have, nor may either close it.
void BeforeFork()
{
    Known().mutex.lock();
    Known().CloseAll();
}

void AfterFork()
{
    Known().mutex.unlock();
}

void InForkedChild()
{
    ForgetNotices();
    Known().mutex.unlock();
}

/// Closes the stores at the end of the process, which writes what is in their logs into them.
struct StoreCloser
{
    ~StoreCloser()
    {
        std::lock_guard const guard(Known().mutex);
        Known().CloseAll();
    }
};

/// Elements of the basic Latin alphabet alone need no tables.
bool FoldPlain(std::u16string_view name, char * folded) noexcept
{
    char16_t seen = 0;
    for (char16_t const c : name)
    {
        seen = static_cast<char16_t>(seen | c);
        *folded++ = 0;
        *folded++ = static_cast<char>(c >= u'A' && c <= u'Z' ? c | 0x20 : c);
    }
    return seen < 0x80;
}

/// Whether bytes are a name that calls can have made, of up to `most` elements.
bool IsName(std::string_view bytes, std::size_t most, bool isKey) noexcept
{
    if (bytes.size() % sizeof(WCHAR) != 0 || bytes.size() > most * sizeof(WCHAR) || (isKey && bytes.empty()))
    {
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); i += sizeof(WCHAR))
    {
        if (bytes[i + 1] == 0 && (bytes[i] == 0 || (isKey && bytes[i] == '\\')))
        {
            return false;
        }
    }
    return true;
}

/// Whether a name is found under `folded`. How other letters than the basic ones are folded differs with the version
/// of the tables, and proves nothing.
bool IsFoundAs(std::string_view name, std::string_view folded) noexcept
{
    if (name.size() != folded.size())
    {
        return false;
    }
    bool isPlain = true;
    bool isEqual = true;
    for (std::size_t i = 0; i < name.size() && isPlain; i += sizeof(WCHAR))
    {
        char const low = name[i];
        isPlain = name[i + 1] == 0 && static_cast<unsigned char>(low) < 0x80;
        isEqual = isEqual && folded[i] == 0 && folded[i + 1] == (low >= 'A' && low <= 'Z' ? low | 0x20 : low);
    }
    return isEqual || !isPlain;
}

} // namespace

std::mutex & RegistryLock() noexcept
{
    return Known().mutex;
}

Statement::~Statement()
{
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

Statement & Statement::NoteBinding(int code) noexcept
{
    if (code != SQLITE_OK && result == ERROR_SUCCESS)
    {
        result = store.StatusOf(code);
    }
    return *this;
}

Statement & Statement::Bind(std::int64_t number) noexcept
{
    return NoteBinding(sqlite3_bind_int64(statement, ++bound, number));
}

Statement & Statement::Bind(std::string_view bytes) noexcept
{
    // A null address would be the null value, and not a blob without bytes.
    char const * const data = bytes.empty() ? "" : bytes.data();
    return NoteBinding(sqlite3_bind_blob64(statement, ++bound, data, bytes.size(), SQLITE_STATIC));
}

Statement & Statement::BindText(std::string_view text) noexcept
{
    char const * const data = text.empty() ? "" : text.data();
    return NoteBinding(sqlite3_bind_text64(statement, ++bound, data, text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

Statement & Statement::BindNull() noexcept
{
    return NoteBinding(sqlite3_bind_null(statement, ++bound));
}

bool Statement::HasKind(int column, char kind) const noexcept
{
    constexpr std::size_t longestKey = 255;
    constexpr std::size_t longestValue = 16383;
    int const type = sqlite3_column_type(statement, column);
    switch (kind)
    {
    case 'i':
        return type == SQLITE_INTEGER;
    case 'u':
        return type == SQLITE_INTEGER && Number(column) >= 0 && Number(column) <= std::numeric_limits<DWORD>::max();
    case 'c':
        return type == SQLITE_NULL || (type == SQLITE_BLOB && IsName(Bytes(column), INT_MAX, false));
    case 's':
        return type == SQLITE_NULL || type == SQLITE_TEXT;
    default:
        break;
    }
    if (type != SQLITE_BLOB || kind == 'b')
    {
        return type == SQLITE_BLOB;
    }
    bool const isKey = kind == 'k';
    constexpr int folded = 3; // of all rows that have a name
    return IsName(Bytes(column), isKey ? longestKey : longestValue, isKey) && IsFoundAs(Bytes(column), Bytes(folded));
}

bool Statement::Step() noexcept
{
    if (result != ERROR_SUCCESS)
    {
        return false;
    }
    int const code = sqlite3_step(statement);
    if (code != SQLITE_ROW)
    {
        result = store.StatusOf(code);
        return false;
    }
    for (int column = 0; kinds[column] != 0; ++column)
    {
        if (!HasKind(column, kinds[column]))
        {
            result = store.NoteDamage();
            return false;
        }
    }
    return true;
}

LSTATUS Statement::Run() noexcept
{
    while (Step())
    {
    }
    return result;
}

std::int64_t Statement::Number(int column) const noexcept
{
    return sqlite3_column_int64(statement, column);
}

std::string_view Statement::Bytes(int column) const noexcept
{
    void const * const bytes = sqlite3_column_blob(statement, column);
    int const size = sqlite3_column_bytes(statement, column);
    return bytes == nullptr ? std::string_view()
                            : std::string_view(static_cast<char const *>(bytes), static_cast<std::size_t>(size));
}

bool Statement::IsNull(int column) const noexcept
{
    return sqlite3_column_type(statement, column) == SQLITE_NULL;
}

RegistryStore::RegistryStore(std::string const & dataDirectory) : path(dataDirectory + "/registry.db")
{
    [[maybe_unused]] static int const registered = pthread_atfork(BeforeFork, AfterFork, InForkedChild);
    [[maybe_unused]] static StoreCloser const closer;
    Known().all.push_back(this);
}

RegistryStore::~RegistryStore()
{
    Close();
    std::erase(Known().all, this);
}

std::shared_ptr<RegistryStore> RegistryStore::Current(LSTATUS & result)
{
    Stores & known = Known();
    char const * const setting = std::getenv("XDG_DATA_HOME");
    std::string_view const configured = setting == nullptr ? "" : setting;
    bool const isConfigured = known.current != nullptr && known.configured == configured;
    bool const isOpen = isConfigured && known.current->IsOpen() && known.current->CheckPlace() == ERROR_SUCCESS;
    char directory[PATH_MAX];
    std::size_t length = 0;
    if (!isOpen && !DataDirectory(directory, length))
    {
        result = ERROR_CANTOPEN;
        return nullptr;
    }
    result = isConfigured ? known.current->Open() : static_cast<LSTATUS>(ERROR_KEY_DELETED);
    if (result == static_cast<LSTATUS>(ERROR_KEY_DELETED))
    {
        known.current = std::make_shared<RegistryStore>(std::string(directory, length));
        known.configured = configured;
        result = known.current->Open();
    }
    return result == ERROR_SUCCESS ? known.current : nullptr;
}

LSTATUS RegistryStore::Open()
{
    if (isDead)
    {
        Leave();
        return ERROR_KEY_DELETED; // whoever found damage has told it
    }
    if (isCopy)
    {
        Close(); // there may be room again
    }
    if (database != nullptr)
    {
        return ERROR_SUCCESS;
    }
    LSTATUS result = OpenFile();
    if (result == static_cast<LSTATUS>(ERROR_DISK_FULL))
    {
        Close();
        result = OpenCopy();
    }
    if (result == damaged)
    {
        NoteDamage();
        Leave();
    }
    else if (result != ERROR_SUCCESS)
    {
        Close();
    }
    return result;
}

LSTATUS RegistryStore::OpenFile() noexcept
{
    LSTATUS result = FindStoreFile(path.c_str(), true, file);
    if (result == ERROR_SUCCESS)
    {
        int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
        result = StatusOfSqlite(sqlite3_open_v2(path.c_str(), &database, flags, nullptr), database);
    }
    return result == ERROR_SUCCESS ? Prepare() : result;
}

/// On a full disk SQLite can make none of the files that it shares between processes. Nobody else has the store open
/// then, or they would be there.
LSTATUS RegistryStore::OpenCopy() noexcept
{
    isCopy = true;
    int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    LSTATUS result = StatusOfSqlite(sqlite3_open_v2(":memory:", &database, flags, nullptr), database);
    if (result == ERROR_SUCCESS)
    {
        result = CopyFile();
    }
    if (result == ERROR_SUCCESS)
    {
        result = Prepare();
    }
    return result == ERROR_SUCCESS ? Execute("PRAGMA query_only = ON") : result;
}

/// Copies the file and its log into memory. A file that is not there, or empty, is an empty store.
LSTATUS RegistryStore::CopyFile() noexcept
{
    file = {};
    LSTATUS result = FindStoreFile(path.c_str(), false, file);
    if (result == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
    {
        return ERROR_SUCCESS;
    }
    sqlite3 * source = nullptr;
    if (result == ERROR_SUCCESS)
    {
        int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
        result = StatusOfSqlite(sqlite3_open_v2(path.c_str(), &source, flags, nullptr), source);
    }
    if (result == ERROR_SUCCESS)
    {
        sqlite3_busy_timeout(source, busyTimeoutMs);
        sqlite3_db_config(source, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        // A single user of the log has its index in memory.
        int code = sqlite3_exec(source, "PRAGMA locking_mode = EXCLUSIVE", nullptr, nullptr, nullptr);
        sqlite3_backup * const backup =
            code == SQLITE_OK ? sqlite3_backup_init(database, "main", source, "main") : nullptr;
        if (backup != nullptr)
        {
            sqlite3_backup_step(backup, -1);
            code = sqlite3_backup_finish(backup);
        }
        result = StatusOfSqlite(backup == nullptr && code == SQLITE_OK ? SQLITE_NOMEM : code, source);
    }
    sqlite3_close_v2(source);
    return result;
}

LSTATUS RegistryStore::Prepare() noexcept
{
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, busyTimeoutMs);
    for (int const setting : {SQLITE_DBCONFIG_DEFENSIVE, SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW})
    {
        sqlite3_db_config(database, setting, setting == SQLITE_DBCONFIG_DEFENSIVE ? 1 : 0, nullptr);
    }
    // Before anything is written: a newer version's store stays as it is.
    std::int64_t version = 0;
    LSTATUS result = CheckVersion(version);
    // A change is in the log when its call returns, and the log is on the disk at each checkpoint.
    for (char const * const setting :
         {"PRAGMA trusted_schema = OFF", "PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL"})
    {
        result = result == ERROR_SUCCESS ? Execute(setting) : result;
    }
    if (result == ERROR_SUCCESS && version == 0)
    {
        result = CreateTables();
    }
    if (result == ERROR_SUCCESS)
    {
        result = CheckTables();
    }
    for (std::size_t i = 0; i < statements.size() && result == ERROR_SUCCESS; ++i)
    {
        result = StatusOfPreparing(
            sqlite3_prepare_v3(database, sqlTexts[i].text, -1, SQLITE_PREPARE_PERSISTENT, &statements[i], nullptr),
            database);
    }
    if (result == ERROR_SUCCESS)
    {
        result = CheckKeys();
    }
    if (isCopy && version == 0)
    {
        storeNumber = 0; // the next copy of nothing has another one, and the same keys
    }
    return result == ERROR_SUCCESS ? PurgeVolatile() : result;
}

/// The version of the file; 0 for one that is still empty.
LSTATUS RegistryStore::CheckVersion(std::int64_t & version) noexcept
{
    std::int64_t application = 0;
    LSTATUS result = ReadNumber("PRAGMA user_version", version);
    if (result == ERROR_SUCCESS && version != 0)
    {
        result = ReadNumber("PRAGMA application_id", application);
        if (result == ERROR_SUCCESS && (application != storeApplication || version < 0))
        {
            return damaged;
        }
    }
    return result == ERROR_SUCCESS && version > storeVersion ? static_cast<LSTATUS>(ERROR_OLD_WIN_VERSION) : result;
}

/// Makes the tables of a new store, unless another process has made them meanwhile.
LSTATUS RegistryStore::CreateTables() noexcept
{
    std::int64_t version = 0;
    std::int64_t tables = 0;
    LSTATUS result = Execute("BEGIN IMMEDIATE");
    if (result == ERROR_SUCCESS)
    {
        result = CheckVersion(version);
    }
    if (result == ERROR_SUCCESS && version == 0)
    {
        result = ReadNumber("SELECT count(*) FROM sqlite_schema", tables);
    }
    if (result == ERROR_SUCCESS && version == 0)
    {
        // Tables without a version are another program's.
        result = tables != 0 ? damaged : FillNewStore();
    }
    if (result == ERROR_SUCCESS)
    {
        result = Execute("COMMIT");
    }
    if (IsInTransaction())
    {
        Execute("ROLLBACK");
    }
    return result;
}

LSTATUS RegistryStore::FillNewStore() noexcept
try
{
    LSTATUS result = ERROR_SUCCESS;
    for (char const * const text : tableTexts)
    {
        result = result == ERROR_SUCCESS ? Execute(text) : result;
    }
    sqlite3_stmt * insert = nullptr;
    if (result == ERROR_SUCCESS)
    {
        result = StatusOfPreparing(
            sqlite3_prepare_v2(
                database, "INSERT INTO keys(id, parent, folded, name, written) VALUES(?1, ?2, ?3, ?4, ?5)", -1, &insert,
                nullptr),
            database);
    }
    for (InitialKey const & key : initialKeys)
    {
        if (result == ERROR_SUCCESS)
        {
            FoldedName const folded(key.name);
            Statement statement(*this, insert, "");
            result =
                statement.Bind(key.id).Bind(key.parent).Bind(folded).Bind(NameBytes(key.name)).Bind(WriteTime()).Run();
        }
    }
    sqlite3_finalize(insert);
    for (char const * const text : {numberStore, reserveNumbers, signStore})
    {
        result = result == ERROR_SUCCESS ? Execute(text) : result;
    }
    return result;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

/// Whether the tables are those that this version makes, without anything else that works on them.
LSTATUS RegistryStore::CheckTables() noexcept
{
    sqlite3_stmt * query = nullptr;
    LSTATUS result = StatusOfPreparing(sqlite3_prepare_v2(database, tablesOfSchema, -1, &query, nullptr), database);
    std::size_t found = 0;
    if (result == ERROR_SUCCESS)
    {
        int code = sqlite3_step(query);
        for (; code == SQLITE_ROW && result == ERROR_SUCCESS; code = sqlite3_step(query))
        {
            auto const * const text = reinterpret_cast<char const *>(sqlite3_column_text(query, 0));
            bool const isOurs = text != nullptr &&
                std::find(std::begin(tableTexts), std::end(tableTexts), std::string_view(text)) != std::end(tableTexts);
            result = isOurs                                 ? ERROR_SUCCESS
                : sqlite3_errcode(database) == SQLITE_NOMEM ? ERROR_NOT_ENOUGH_MEMORY
                                                            : damaged;
            ++found;
        }
        result = result == ERROR_SUCCESS ? StatusOfPreparing(code, database) : result;
    }
    sqlite3_finalize(query);
    return result == ERROR_SUCCESS && found != std::size(tableTexts) ? damaged : result;
}

/// Whether the keys are there that everything else hangs from, and there is room for others.
LSTATUS RegistryStore::CheckKeys() noexcept
{
    std::int64_t bad = 0;
    LSTATUS result = ReadNumber(countBadNumbers, bad);
    if (result == ERROR_SUCCESS)
    {
        result = bad != 0 ? damaged : CheckNumber();
    }
    return result == ERROR_SUCCESS ? CheckInitialKeys() : result;
}

LSTATUS RegistryStore::CheckInitialKeys() noexcept
try
{
    std::int64_t count = 0;
    LSTATUS result = ReadNumber(countInitialKeys, count);
    if (result != ERROR_SUCCESS || count != std::ssize(initialKeys))
    {
        return result != ERROR_SUCCESS ? result : damaged;
    }
    for (InitialKey const & key : initialKeys)
    {
        FoldedName const folded(key.name);
        Statement byName = Use(Sql::FindKey);
        bool const isFound =
            byName.Bind(key.parent).Bind(folded).Step() && byName.Number(0) == key.id && byName.Number(1) == 0;
        Statement byNumber = Use(Sql::ParentOf);
        bool const isBelow = isFound && byNumber.Bind(key.id).Step() && byNumber.Number(0) == key.parent;
        for (Statement const * const statement : {&byName, &byNumber})
        {
            if (statement->Result() != ERROR_SUCCESS)
            {
                return statement->Result();
            }
        }
        if (!isBelow)
        {
            return damaged;
        }
    }
    return ERROR_SUCCESS;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS RegistryStore::CheckNumber() noexcept
{
    std::int64_t number = 0;
    LSTATUS const result = ReadNumber("SELECT number FROM store", number);
    if (result != ERROR_SUCCESS || number <= 0)
    {
        return result != ERROR_SUCCESS ? result : damaged;
    }
    if (storeNumber != 0 && number != storeNumber)
    {
        // Another store has taken the place of this one, whose keys are gone with it.
        isDead = true;
        return ERROR_KEY_DELETED;
    }
    storeNumber = number;
    return ERROR_SUCCESS;
}

/// Removes the volatile keys of earlier runs of the system.
LSTATUS RegistryStore::PurgeVolatile() noexcept
{
    std::int64_t left = 0;
    LSTATUS result = ReadNumber(countVolatile, left, true);
    if (result != ERROR_SUCCESS || left == 0)
    {
        return result;
    }
    for (char const * const text : {purgeVolatileValues, purgeVolatileKeys})
    {
        result = ReadNumber(text, left, true);
        if (result != ERROR_SUCCESS)
        {
            return result;
        }
    }
    return ERROR_SUCCESS;
}

LSTATUS RegistryStore::Execute(char const * text) noexcept
{
    return StatusOfSqlite(sqlite3_exec(database, text, nullptr, nullptr, nullptr), database);
}

/// Runs a statement that gives a number, or nothing. Its parameter, if it has one, is the run of the system.
LSTATUS RegistryStore::ReadNumber(char const * query, std::int64_t & number, bool withRun) noexcept
{
    sqlite3_stmt * prepared = nullptr;
    LSTATUS result = StatusOfPreparing(sqlite3_prepare_v2(database, query, -1, &prepared, nullptr), database);
    if (result == ERROR_SUCCESS)
    {
        Statement statement(*this, prepared, sqlite3_column_count(prepared) == 1 ? "i" : "");
        if (withRun)
        {
            statement.BindText(SystemRun());
        }
        if (statement.Step())
        {
            number = statement.Number(0);
        }
        result = statement.Result();
    }
    sqlite3_finalize(prepared);
    return result;
}

LSTATUS RegistryStore::CheckPlace() noexcept
{
    if (!isDead && database != nullptr && !isCopy && !(IdentityOf(path.c_str()) == file))
    {
        isDead = true;
    }
    return isDead ? ERROR_KEY_DELETED : ERROR_SUCCESS;
}

Statement RegistryStore::Use(Sql which) noexcept
{
    auto const index = static_cast<std::size_t>(which);
    return Statement(*this, statements[index], sqlTexts[index].columns);
}

LSTATUS RegistryStore::StatusOf(int code) noexcept
{
    LSTATUS status = StatusOfSqlite(code, database);
    if (isCopy && status == static_cast<LSTATUS>(ERROR_ACCESS_DENIED))
    {
        status = ERROR_DISK_FULL;
    }
    // Another program may have changed the tables under a statement.
    if ((code & 0xFF) == SQLITE_ERROR && CheckTables() == damaged)
    {
        status = damaged;
    }
    return status == damaged ? NoteDamage() : status;
}

LSTATUS RegistryStore::NoteDamage() noexcept
{
    isDead = true;
    isDamaged = true;
    return damaged;
}

void RegistryStore::Close() noexcept
{
    for (sqlite3_stmt *& statement : statements)
    {
        sqlite3_finalize(std::exchange(statement, nullptr));
    }
    // One that cannot be closed is left alone rather than used again.
    sqlite3_close_v2(std::exchange(database, nullptr));
    isCopy = false;
    ++changes;
    ++foreignChanges;
}

void RegistryStore::Leave() noexcept
try
{
    Close();
    if (isDamaged)
    {
        SetStoreAside(path, file);
        isDamaged = false;
    }
}
catch (std::bad_alloc const &)
{
    // The next process that opens the store finds the damage, too.
}

bool RegistryStore::HasChanged() const noexcept
{
    return sqlite3_changes(database) != 0;
}

KeyId RegistryStore::LastInserted() const noexcept
{
    return sqlite3_last_insert_rowid(database);
}

bool RegistryStore::IsInTransaction() const noexcept
{
    return sqlite3_get_autocommit(database) == 0;
}

LSTATUS RegistryStore::Flush() noexcept
{
    // Without readers or with them, the log is on the disk first.
    int const code = sqlite3_wal_checkpoint_v2(database, nullptr, SQLITE_CHECKPOINT_FULL, nullptr, nullptr);
    return StatusOf(code);
}

std::uint64_t RegistryStore::ForeignChangeCount() noexcept
{
    Statement statement = Use(Sql::DataVersion);
    std::int64_t const now = statement.Step() ? statement.Number(0) : dataVersion + 1;
    if (now != dataVersion)
    {
        dataVersion = now;
        ++changes;
        ++foreignChanges;
    }
    return foreignChanges;
}

std::uint64_t RegistryStore::ChangeCount() noexcept
{
    ForeignChangeCount();
    return changes;
}

void RegistryStore::NoteChange(KeyChange const & change) noexcept
{
    ++changes;
    TellNotices(*this, change);
}

Transaction::Transaction(RegistryStore & changedStore) noexcept
    : store(changedStore), result(Begin(changedStore)), isOpen(result == ERROR_SUCCESS)
{
}

LSTATUS Transaction::Begin(RegistryStore & store) noexcept
{
    LSTATUS const gone = store.CheckPlace();
    return gone != ERROR_SUCCESS ? gone : store.Use(Sql::Begin).Run();
}

Transaction::~Transaction()
{
    // Some failures, such as a full disk, have ended the transaction already.
    if (isOpen && store.IsInTransaction())
    {
        store.Use(Sql::Rollback).Run();
    }
}

LSTATUS Transaction::Commit(KeyChange const & change) noexcept
{
    LSTATUS const committed = store.Use(Sql::Commit).Run();
    if (committed == ERROR_SUCCESS)
    {
        isOpen = false;
        store.NoteChange(change);
    }
    return committed;
}

std::int64_t WriteTime() noexcept
{
    static std::atomic<std::int64_t> last{0};
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    std::int64_t const now = static_cast<std::int64_t>(
        static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | static_cast<std::uint64_t>(time.dwLowDateTime));
    std::int64_t before = last.load();
    std::int64_t next = 0;
    do
    {
        next = std::max(now, before + 1);
    } while (!last.compare_exchange_weak(before, next));
    return next;
}

std::string_view NameBytes(std::u16string_view name) noexcept
{
    return {reinterpret_cast<char const *>(name.data()), name.size() * sizeof(WCHAR)};
}

FoldedName::FoldedName(std::u16string_view name) : text(name.size() * 2, '\0')
{
    if (FoldPlain(name, text.data()))
    {
        return;
    }
    std::u16string lower(name.size(), u'\0');
    int const length = static_cast<int>(name.size());
    if (LCMapStringW(LOCALE_INVARIANT, LCMAP_LOWERCASE, name.data(), length, lower.data(), length) != length)
    {
        lower = name;
    }
    for (std::size_t i = 0; i < lower.size(); ++i)
    {
        text[2 * i] = static_cast<char>(lower[i] >> 8);
        text[2 * i + 1] = static_cast<char>(lower[i] & 0xFF);
    }
}

} // namespace kv::platform
