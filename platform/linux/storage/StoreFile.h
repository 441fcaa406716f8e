#pragma once

// What the stores that are SQLite databases have in common: what SQLite's results mean, which file may be opened as a
// store, and what becomes of a damaged one.

#include <cstdint>
#include <string>
#include <string_view>

#include <kvcore/platform/include/winreg.h>

struct sqlite3;

namespace kv::platform
{

/// What a result of SQLite means to callers. ERROR_BADDB is damage of the file, and nothing else is: running out of
/// memory, a locked, full or unreachable file say nothing about what stands in it. `database` tells the system's own
/// error behind the result; it may be null.
LSTATUS StatusOfSqlite(int code, sqlite3 * database) noexcept;

/// The same for preparing a statement that fits every healthy store: one that does not fit this store is damage.
LSTATUS StatusOfPreparing(int code, sqlite3 * database) noexcept;

/// Tells one file from another that takes its place. Nothing, for no file, is equal to nothing.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    bool operator==(FileIdentity const &) const = default;
};
FileIdentity IdentityOf(char const * path) noexcept;

/// Looks for the file of a store, makes it where `create` wants that, for this user alone, and tells which it is.
/// ERROR_FILE_NOT_FOUND if there is none and none is wanted, ERROR_DISK_FULL if there is no room to make it;
/// ERROR_CANTOPEN for a directory, a pipe or anything else that is no file; opening some of them would wait for ever.
/// ERROR_BADDB for an empty file whose log is not: SQLite would delete the log, and what it holds.
LSTATUS FindStoreFile(char const * path, bool create, FileIdentity & identity) noexcept;

/// Renames a damaged store and its logs to `path`.damaged-1, or the next free number, so that nothing overwrites what
/// can be saved of them. Does nothing if another process has done it already, and another file is at `path`.
void SetStoreAside(std::string const & path, FileIdentity const & damaged);

/// Names this run of the system, from its start to its end. Empty if the system does not tell.
std::string_view SystemRun() noexcept;

} // namespace kv::platform
