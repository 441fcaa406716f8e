#pragma once

// The tables of a registry store, and what is asked of them.
//
// A key's `boot` is null, or for a volatile key the run of the system that it belongs to. `folded` is what names are
// found and ordered by. A key was last written at the greatest of its own time and those of its values, so that setting
// a value changes one row.

#include <string_view>

#include <kvcore/platform/linux/registry/RegistryStore.h>

namespace kv::platform
{

/// Stands in the file's header. Files with a greater one are a newer version's.
constexpr int storeVersion = 1;
/// Stands there too ("KVRG"), so that no other program's database is taken for a registry.
constexpr int storeApplication = 0x4B565247;

/// The tables and what belongs to them, as the file's schema has them: a store with others cannot serve.
constexpr char const * tableTexts[] = {
    R"sql(CREATE TABLE keys(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER NOT NULL,
    folded BLOB NOT NULL,
    name BLOB NOT NULL,
    class BLOB,
    boot TEXT,
    written INTEGER NOT NULL,
    UNIQUE(parent, folded)))sql",
    R"sql(CREATE TABLE vals(
    key INTEGER NOT NULL,
    folded BLOB NOT NULL,
    name BLOB NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    written INTEGER NOT NULL,
    PRIMARY KEY(key, folded)) WITHOUT ROWID)sql",
    "CREATE TABLE store(number INTEGER NOT NULL)",
    "CREATE INDEX volatileKeys ON keys(boot) WHERE boot IS NOT NULL",
};
constexpr char numberStore[] = "INSERT INTO store VALUES(abs(random() >> 1) + 1)";

/// What of the schema concerns the tables. Indexes that SQLite makes for itself have no text.
constexpr char tablesOfSchema[] =
    "SELECT sql FROM sqlite_schema WHERE lower(tbl_name) IN ('keys', 'vals', 'store') AND sql IS NOT NULL";

constexpr char reserveNumbers[] = "UPDATE sqlite_sequence SET seq = 99 WHERE name = 'keys'";
static_assert(firstFreeKey == 100);

/// The keys that are there from the start.
struct InitialKey
{
    KeyId id;
    KeyId parent;
    std::u16string_view name;
};
constexpr InitialKey initialKeys[] = {
    {usersKey, noKey, u"Users"},         {machineKey, noKey, u"Machine"},
    {dynamicDataKey, noKey, u"Dynamic"}, {currentUserKey, usersKey, u"S-1-5-21-0-0-0-1000"},
    {classesKey, 8, u"Classes"},         {currentConfigKey, 12, u"Current"},
    {7, usersKey, u".Default"},          {8, machineKey, u"Software"},
    {9, machineKey, u"System"},          {10, 9, u"CurrentControlSet"},
    {12, 10, u"Hardware Profiles"},      {13, currentUserKey, u"Software"},
};

constexpr char signStore[] = "PRAGMA application_id = 1263948359; PRAGMA user_version = 1";
static_assert(storeApplication == 1263948359 && storeVersion == 1);

constexpr char countVolatile[] = "SELECT count(*) FROM keys WHERE boot IS NOT NULL AND boot <> ?1";
/// ?1 is the run of the system. Keys below a volatile one are volatile too, so that none is left without its parent.
constexpr char purgeVolatileValues[] =
    "DELETE FROM vals WHERE key IN (SELECT id FROM keys WHERE boot IS NOT NULL AND boot <> ?1)";
constexpr char purgeVolatileKeys[] = "DELETE FROM keys WHERE boot IS NOT NULL AND boot <> ?1";

/// The numbers of keys grow from a key to those below it. A store must leave room for further ones.
constexpr char countBadNumbers[] =
    "SELECT (SELECT count(*) FROM sqlite_sequence WHERE name = 'keys' AND typeof(seq) = 'integer' AND "
    "seq BETWEEN 99 AND 1 << 62) <> 1 OR (SELECT min(id) < 1 OR max(id) > 1 << 62 FROM keys)";
constexpr char countInitialKeys[] = "SELECT count(*) FROM keys WHERE id < 100";

/// A statement, and what its rows must hold, a letter for each column: 'i' an integer, 'u' one of 32 bits without a
/// sign, 'b' bytes, 'k' the name of a key, 'v' that of a value, 'c' a class or null, 's' a text or null. What other
/// programs write into the file may be of any kind.
struct SqlText
{
    char const * text;
    char const * columns;
};

// A union of unlike rows ends where the parents of keys form a circle, too.
#define KV_SUBTREE                                                                                                     \
    "WITH RECURSIVE tree(id) AS (SELECT id FROM keys WHERE parent = ?1 UNION "                                         \
    "SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) "

/// In the order of `Sql`.
constexpr SqlText sqlTexts[] = {
    {"BEGIN IMMEDIATE", ""},
    {"COMMIT", ""},
    {"ROLLBACK", ""},
    {"SELECT id, boot IS NOT NULL FROM keys WHERE parent = ?1 AND folded = ?2", "ii"},
    {"SELECT boot IS NOT NULL FROM keys WHERE id = ?1", "i"},
    {"SELECT parent FROM keys WHERE id = ?1", "i"},
    {"INSERT INTO keys(parent, folded, name, class, boot, written) VALUES(?1, ?2, ?3, ?4, ?5, ?6)", ""},
    {"UPDATE keys SET written = ?2 WHERE id = ?1", ""},
    {"SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1", "i"},
    {"DELETE FROM keys WHERE id = ?1", ""},
    {"DELETE FROM vals WHERE key = ?1", ""},
    {KV_SUBTREE "SELECT 1 FROM tree WHERE id < 100 LIMIT 1", "i"},
    {KV_SUBTREE "DELETE FROM vals WHERE key IN (SELECT id FROM tree)", ""},
    {KV_SUBTREE "DELETE FROM keys WHERE id IN (SELECT id FROM tree)", ""},
    {"SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2", "ub"},
    {"INSERT INTO vals(key, folded, name, type, data, written) SELECT ?1, ?2, ?3, ?4, ?5, ?6 "
     "WHERE EXISTS(SELECT 1 FROM keys WHERE id = ?1) "
     "ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data, written = excluded.written "
     "WHERE type <> excluded.type OR data <> excluded.data",
     ""},
    {"DELETE FROM vals WHERE key = ?1 AND folded = ?2", ""},
    {"SELECT name, type, data, folded FROM vals WHERE key = ?1 ORDER BY folded LIMIT 1 OFFSET ?2", "vubb"},
    {"SELECT name, type, data, folded FROM vals WHERE key = ?1 AND folded > ?2 ORDER BY folded LIMIT 1", "vubb"},
    {"SELECT name, id, class, folded FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2", "kicb"},
    {"SELECT name, id, class, folded FROM keys WHERE parent = ?1 AND folded > ?2 ORDER BY folded LIMIT 1", "kicb"},
    {"SELECT class, max(written, (SELECT ifnull(max(written), 0) FROM vals WHERE key = ?1)) FROM keys WHERE id = ?1",
     "ci"},
    {"SELECT count(*), ifnull(max(length(name)), 0), ifnull(max(length(class)), 0) FROM keys WHERE parent = ?1", "iii"},
    {"SELECT count(*), ifnull(max(length(name)), 0), ifnull(max(length(data)), 0) FROM vals WHERE key = ?1", "iii"},
    {"PRAGMA data_version", "i"},
    // Numbers of keys are never used again, and each change of a value has its time. ?2 is 1 for the whole subtree and
    // 0 for the key itself.
    {"WITH RECURSIVE tree(id) AS (SELECT id FROM keys WHERE parent = ?1 UNION SELECT keys.id FROM keys JOIN tree ON "
     "keys.parent = tree.id WHERE ?2) SELECT group_concat(id) FROM (SELECT id FROM tree ORDER BY id)",
     "s"},
    {"WITH RECURSIVE tree(id) AS (SELECT ?1 UNION SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id WHERE "
     "?2) SELECT group_concat(item) FROM (SELECT vals.key || ':' || hex(folded) || ':' || written || ':' || type || "
     "':' || length(data) AS item FROM vals JOIN tree ON vals.key = tree.id ORDER BY vals.key, folded)",
     "s"},
};

#undef KV_SUBTREE

} // namespace kv::platform
