#include "RegistryStore.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

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

constexpr int patience = 5000; // milliseconds

LSTATUS StatusOf(int sqliteCode) noexcept
{
    switch (sqliteCode & 0xFF)
    {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return ERROR_SUCCESS;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return ERROR_BUSY;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return ERROR_BADDB;
    case SQLITE_CANTOPEN:
        return ERROR_CANTOPEN;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return ERROR_ACCESS_DENIED;
    case SQLITE_FULL:
        return ERROR_DISK_FULL;
    case SQLITE_NOMEM:
    case SQLITE_TOOBIG:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

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

std::string RunOfTheSystem()
{
    char text[64] = {};
    int const file = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    if (file >= 0)
    {
        ssize_t const length = read(file, text, sizeof text - 1);
        text[length > 0 && text[length - 1] == '\n' ? length - 1 : 0] = '\0';
        close(file);
    }
    return text;
}

std::uint64_t InodeOf(char const * path) noexcept
{
    struct stat status;
    return stat(path, &status) == 0 ? status.st_ino : 0;
}

} // namespace

std::mutex & RegistryLock() noexcept
{
    return Known().mutex;
}

std::string const & BootIdentity()
{
    static std::string const & text = *new std::string(RunOfTheSystem());
    return text;
}

Statement::~Statement()
{
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

Statement & Statement::Bind(std::int64_t number) noexcept
{
    sqlite3_bind_int64(statement, ++bound, number);
    return *this;
}

Statement & Statement::Bind(std::string_view bytes) noexcept
{
    // A null address would be the null value, and not a blob without bytes.
    sqlite3_bind_blob64(statement, ++bound, bytes.empty() ? "" : bytes.data(), bytes.size(), SQLITE_STATIC);
    return *this;
}

Statement & Statement::BindText(std::string_view text) noexcept
{
    sqlite3_bind_text64(statement, ++bound, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
    return *this;
}

Statement & Statement::BindNull() noexcept
{
    sqlite3_bind_null(statement, ++bound);
    return *this;
}

bool Statement::Step() noexcept
{
    int const code = sqlite3_step(statement);
    if (code == SQLITE_ROW)
    {
        return true;
    }
    result = StatusOf(code);
    if (result == static_cast<LSTATUS>(ERROR_BADDB))
    {
        store.NoteDamage();
    }
    return false;
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
    if (known.current != nullptr && !known.current->IsDead())
    {
        known.current->Open(); // may find that another store has taken its place
    }
    char const * const setting = std::getenv("XDG_DATA_HOME");
    std::string_view const configured = setting == nullptr ? "" : setting;
    if (known.current == nullptr || known.configured != configured || known.current->IsDead())
    {
        if (known.current != nullptr && known.current->IsDead())
        {
            known.current->Bury();
        }
        char directory[PATH_MAX];
        std::size_t length = 0;
        if (!DataDirectory(directory, length))
        {
            result = ERROR_CANTOPEN;
            return nullptr;
        }
        known.current = std::make_shared<RegistryStore>(std::string(directory, length));
        known.configured = configured;
    }
    result = known.current->Open();
    return result == ERROR_SUCCESS ? known.current : nullptr;
}

LSTATUS RegistryStore::Open()
{
    if (isDead)
    {
        Bury();
        return isDamaged ? ERROR_BADDB : ERROR_KEY_DELETED;
    }
    if (database != nullptr)
    {
        return ERROR_SUCCESS;
    }
    inode = InodeOf(path.c_str());
    LSTATUS const result = OpenFile();
    if (result != ERROR_SUCCESS)
    {
        Close();
        if (result == static_cast<LSTATUS>(ERROR_BADDB))
        {
            NoteDamage();
            Bury();
        }
    }
    return result;
}

LSTATUS RegistryStore::OpenFile() noexcept
{
    // Only this user reads it. SQLite gives its further files the same rights.
    int const file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file >= 0)
    {
        close(file);
    }
    int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    LSTATUS result = StatusOf(sqlite3_open_v2(path.c_str(), &database, flags, nullptr));
    if (result == ERROR_SUCCESS)
    {
        result = Prepare();
    }
    for (std::size_t i = 0; i < statements.size() && result == ERROR_SUCCESS; ++i)
    {
        result =
            StatusOf(sqlite3_prepare_v3(database, sqlTexts[i], -1, SQLITE_PREPARE_PERSISTENT, &statements[i], nullptr));
    }
    return result;
}

LSTATUS RegistryStore::Prepare() noexcept
{
    sqlite3_busy_timeout(database, patience);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    std::int64_t version = 0;
    LSTATUS result = ReadNumber("PRAGMA user_version", version);
    if (result != ERROR_SUCCESS)
    {
        return result;
    }
    // Before anything is written: a newer version's store stays as it is.
    if (version > storeVersion)
    {
        return ERROR_OLD_WIN_VERSION;
    }
    // A change is in the log when its call returns, and the log is on the disk at each checkpoint.
    for (char const * const setting :
         {"PRAGMA trusted_schema = OFF", "PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL"})
    {
        result = Execute(setting);
        if (result != ERROR_SUCCESS)
        {
            return result;
        }
    }
    if (version == 0)
    {
        result = CreateTables();
    }
    if (result == ERROR_SUCCESS)
    {
        result = CheckIdentity();
    }
    return result == ERROR_SUCCESS ? PurgeVolatile() : result;
}

/// Makes the tables of a new store, unless another process has made them meanwhile.
LSTATUS RegistryStore::CreateTables() noexcept
{
    std::int64_t version = 0;
    std::int64_t tables = 0;
    LSTATUS result = Execute("BEGIN IMMEDIATE");
    if (result == ERROR_SUCCESS)
    {
        result = ReadNumber("PRAGMA user_version", version);
    }
    if (result == ERROR_SUCCESS && version == 0)
    {
        result = ReadNumber("SELECT count(*) FROM sqlite_schema", tables);
    }
    if (result == ERROR_SUCCESS && version == 0)
    {
        // Tables without a version are another program's.
        result = tables != 0 ? static_cast<LSTATUS>(ERROR_BADDB) : FillNewStore();
    }
    if (result == ERROR_SUCCESS)
    {
        result = Execute("COMMIT");
    }
    if (result != ERROR_SUCCESS)
    {
        Execute("ROLLBACK");
    }
    return result;
}

LSTATUS RegistryStore::FillNewStore() noexcept
try
{
    LSTATUS result = Execute(createTables);
    sqlite3_stmt * insert = nullptr;
    if (result == ERROR_SUCCESS)
    {
        result = StatusOf(sqlite3_prepare_v2(
            database, "INSERT INTO keys(id, parent, folded, name, written) VALUES(?1, ?2, ?3, ?4, ?5)", -1, &insert,
            nullptr));
    }
    for (InitialKey const & key : initialKeys)
    {
        if (result == ERROR_SUCCESS)
        {
            FoldedName const folded(key.name);
            Statement statement(*this, insert);
            result =
                statement.Bind(key.id).Bind(key.parent).Bind(folded).Bind(NameBytes(key.name)).Bind(WriteTime()).Run();
        }
    }
    sqlite3_finalize(insert);
    if (result == ERROR_SUCCESS)
    {
        result = Execute(reserveNumbers);
    }
    return result == ERROR_SUCCESS ? Execute(signStore) : result;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS RegistryStore::CheckIdentity() noexcept
{
    std::int64_t application = 0;
    LSTATUS result = ReadNumber("PRAGMA application_id", application);
    if (result != ERROR_SUCCESS || application != storeApplication)
    {
        return result != ERROR_SUCCESS ? result : static_cast<LSTATUS>(ERROR_BADDB);
    }
    std::int64_t number = 0;
    result = ReadNumber("SELECT number FROM store", number);
    if (result == ERROR_SUCCESS && identity != 0 && number != identity)
    {
        // Another store has taken the place of this one, whose keys are gone with it.
        isDead = true;
        isBuried = true;
        return ERROR_KEY_DELETED;
    }
    identity = number;
    return result;
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
    return StatusOf(sqlite3_exec(database, text, nullptr, nullptr, nullptr));
}

/// Runs a statement that gives a number, or nothing. Its parameter, if it has one, is the run of the system.
LSTATUS RegistryStore::ReadNumber(char const * query, std::int64_t & number, bool withRun) noexcept
{
    sqlite3_stmt * prepared = nullptr;
    LSTATUS result = StatusOf(sqlite3_prepare_v2(database, query, -1, &prepared, nullptr));
    if (result == ERROR_SUCCESS)
    {
        Statement statement(*this, prepared);
        if (withRun)
        {
            statement.BindText(BootIdentity());
        }
        if (statement.Step())
        {
            number = statement.Number(0);
        }
        result = statement.Result();
    }
    else if (std::strstr(query, "store") != nullptr)
    {
        result = ERROR_BADDB; // the table is not there
    }
    sqlite3_finalize(prepared);
    return result;
}

void RegistryStore::Close() noexcept
{
    for (sqlite3_stmt *& statement : statements)
    {
        sqlite3_finalize(std::exchange(statement, nullptr));
    }
    // One that cannot be closed is left alone rather than used again.
    sqlite3_close_v2(std::exchange(database, nullptr));
    ++changes;
}

/// Closes a damaged store and gives its files another name, so that nothing overwrites what can be saved of them.
void RegistryStore::Bury() noexcept
try
{
    Close();
    if (isBuried)
    {
        return;
    }
    isBuried = true;
    // Another process may have found the same damage, and begun the next store already.
    int const lock = open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0)
    {
        return;
    }
    if (flock(lock, LOCK_EX) == 0 && InodeOf(path.c_str()) == inode)
    {
        SetAside();
    }
    close(lock);
}
catch (std::bad_alloc const &)
{
    isBuried = false;
}

void RegistryStore::SetAside() const
{
    for (int number = 1; number < 10000; ++number)
    {
        std::string const aside = path + ".damaged-" + std::to_string(number);
        if (renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0)
        {
            rename((path + "-wal").c_str(), (aside + "-wal").c_str());
            unlink((path + "-shm").c_str());
            return;
        }
        if (errno != EEXIST)
        {
            return;
        }
    }
}

bool RegistryStore::HasChanged() const noexcept
{
    return sqlite3_changes(database) != 0;
}

KeyId RegistryStore::LastInserted() const noexcept
{
    return sqlite3_last_insert_rowid(database);
}

LSTATUS RegistryStore::Flush() noexcept
{
    // Without readers or with them, the log is on the disk first.
    int const code = sqlite3_wal_checkpoint_v2(database, nullptr, SQLITE_CHECKPOINT_FULL, nullptr, nullptr);
    return StatusOf(code);
}

std::uint64_t RegistryStore::ChangeCount() noexcept
{
    Statement statement = Use(Sql::DataVersion);
    std::int64_t const now = statement.Step() ? statement.Number(0) : dataVersion + 1;
    if (now != dataVersion)
    {
        dataVersion = now;
        ++changes;
    }
    return changes;
}

void RegistryStore::NoteChange() noexcept
{
    ++changes;
    NoticeChange();
}

Transaction::Transaction(RegistryStore & changedStore) noexcept
    : store(changedStore), result(store.Use(Sql::Begin).Run()), isOpen(result == ERROR_SUCCESS)
{
}

Transaction::~Transaction()
{
    if (isOpen)
    {
        store.Use(Sql::Rollback).Run();
    }
}

LSTATUS Transaction::Commit() noexcept
{
    LSTATUS const committed = store.Use(Sql::Commit).Run();
    if (committed == ERROR_SUCCESS)
    {
        isOpen = false;
        store.NoteChange();
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

namespace
{

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

} // namespace

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
