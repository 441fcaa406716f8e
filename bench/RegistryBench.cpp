// Ten thousand registry values set and read one by one, beside SQLite with prepared statements and the same durability;
// and a project of 500 clips stored as one value and read, beside its serialization alone, to memory.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactory.h>

#include "Jobs.h"
#include "ScratchFolder.h"

/// A clip of a storyboard.
class BenchShot : public KVUnknown, public ISerializable
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream >> path >> comment >> start >> length >> width >> height;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << path << comment << start << length << width << height;
    }
    short GetVersion() const override
    {
        return 1;
    }

    String path;
    String comment;
    double start = 0;
    double length = 0;
    int width = 720;
    int height = 576;
};

/// The storyboard: its clips in their order, some of them more than once.
class BenchProject : public KVUnknown, public ISerializable
{
public:
    BenchProject() = default;
    BenchProject(BenchProject const &) = delete;
    ~BenchProject() override
    {
        for (BenchShot * const shot : shots)
        {
            shot->Release();
        }
    }

    void Read(SerializingInputStream & stream, short) override
    {
        int count = 0;
        stream >> title >> count;
        for (int i = 0; i < count; ++i)
        {
            auto * const shot = static_cast<BenchShot *>(stream.ReadRef());
            // Every fourth is one that stands there already, and only lent.
            if (i % 4 == 3)
            {
                shot->AddRef();
            }
            shots.push_back(shot);
        }
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << title << static_cast<int>(shots.size());
        for (BenchShot const * const shot : shots)
        {
            stream.WriteRef(shot);
        }
    }
    short GetVersion() const override
    {
        return 1;
    }

    String title;
    std::vector<BenchShot *> shots;
};

namespace
{

constexpr std::size_t count = 10000;

std::vector<String> Names()
{
    std::vector<String> names;
    for (std::size_t i = 0; i < count; ++i)
    {
        names.push_back(String::FromUtf8("value " + std::to_string(i)));
    }
    return names;
}

void SetOurs(SysRegKey & key, std::vector<String> const & names)
{
    for (std::size_t i = 0; i < count; ++i)
    {
        key.SetInteger(names[i], static_cast<DWORD>(i));
    }
}

std::uint64_t ReadOurs(SysRegKey const & key, std::vector<String> const & names)
{
    std::uint64_t sum = 0;
    for (String const & name : names)
    {
        unsigned int number = 0;
        key.GetInteger(name, number);
        sum += number;
    }
    return sum;
}

/// A table of values with the two statements that the job takes, each change in the log when its call returns.
class Table
{
public:
    explicit Table(std::string const & path)
    {
        bench::Require(sqlite3_open(path.c_str(), &database) == SQLITE_OK, "Registry");
        for (char const * const text :
             {"PRAGMA journal_mode = WAL", "PRAGMA synchronous = NORMAL",
              "CREATE TABLE vals(key INTEGER, name BLOB, type INTEGER, data BLOB, PRIMARY KEY(key, name)) WITHOUT "
              "ROWID"})
        {
            bench::Require(sqlite3_exec(database, text, nullptr, nullptr, nullptr) == SQLITE_OK, "Registry");
        }
        sqlite3_prepare_v2(database, "INSERT OR REPLACE INTO vals VALUES(1, ?1, 4, ?2)", -1, &set, nullptr);
        sqlite3_prepare_v2(database, "SELECT type, data FROM vals WHERE key = 1 AND name = ?1", -1, &get, nullptr);
    }
    Table(Table const &) = delete;
    Table & operator=(Table const &) = delete;
    ~Table()
    {
        sqlite3_finalize(set);
        sqlite3_finalize(get);
        sqlite3_close(database);
    }

    void Set(std::vector<String> const & names)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            DWORD const number = static_cast<DWORD>(i);
            BindName(set, names[i]);
            sqlite3_bind_blob(set, 2, &number, sizeof number, SQLITE_STATIC);
            sqlite3_step(set);
            sqlite3_reset(set);
        }
    }
    std::uint64_t Read(std::vector<String> const & names)
    {
        std::uint64_t sum = 0;
        for (String const & name : names)
        {
            BindName(get, name);
            if (sqlite3_step(get) == SQLITE_ROW && sqlite3_column_int(get, 0) == 4)
            {
                DWORD number = 0;
                std::memcpy(&number, sqlite3_column_blob(get, 1), sizeof number);
                sum += number;
            }
            sqlite3_reset(get);
        }
        return sum;
    }

private:
    static void BindName(sqlite3_stmt * statement, String const & name)
    {
        sqlite3_bind_blob(statement, 1, name.data(), static_cast<int>(name.size() * sizeof(WCHAR)), SQLITE_STATIC);
    }

    sqlite3 * database = nullptr;
    sqlite3_stmt * set = nullptr;
    sqlite3_stmt * get = nullptr;
};

/// Both stores, each in the scratch folder.
struct Contestants
{
    Contestants()
        : key(
              (setenv("XDG_DATA_HOME", bench::ScratchFolder::Path().c_str(), 1),
               SysRegKey(HKEY_CURRENT_USER).CreateSubkey(TEXT("Software\\Bench"), 0, KEY_ALL_ACCESS, nullptr))),
          table((bench::ScratchFolder::Path() / "peer.db").string())
    {
    }

    std::vector<String> names = Names();
    SysRegKey key;
    Table table;
};

void AddJobs()
{
    auto const both = std::make_shared<Contestants>();
    SetOurs(both->key, both->names);
    both->table.Set(both->names);
    bench::Require(ReadOurs(both->key, both->names) == both->table.Read(both->names), "Registry");
    bench::Add("Registry/set/ours", count, [both] { SetOurs(both->key, both->names); });
    bench::Add("Registry/set/sqlite", count, [both] { both->table.Set(both->names); });
    bench::Add("Registry/read/ours", count, [both] { benchmark::DoNotOptimize(ReadOurs(both->key, both->names)); });
    bench::Add("Registry/read/sqlite", count, [both] { benchmark::DoNotOptimize(both->table.Read(both->names)); });
}

constexpr int shotCount = 500;

void Fill(BenchProject & project)
{
    auto random = bench::Random();
    project.title = TEXT("A project");
    for (int i = 0; i < shotCount; ++i)
    {
        if (i % 4 == 3)
        {
            project.shots.push_back(project.shots[random() % project.shots.size()]);
            project.shots.back()->AddRef();
            continue;
        }
        auto * const shot = new BenchShot;
        shot->path = String::FromUtf8("z:\\projects\\clips\\scene " + std::to_string(random() % 100) + "\\take.avi");
        shot->comment = i % 3 == 0 ? TEXT("to be cut") : TEXT("");
        shot->start = static_cast<double>(random() % 100000) * 0.04;
        shot->length = static_cast<double>(random() % 500) * 0.04;
        project.shots.push_back(shot);
    }
}

/// A project, and both ways to keep it.
struct ProjectStores
{
    explicit ProjectStores(SysRegKey const & storeKey) : key(storeKey)
    {
        RegisterType<BenchProject>(factory);
        RegisterType<BenchShot>(factory);
        Fill(project);
    }

    bool Store()
    {
        return key.WriteObject(TEXT("project"), factory, project);
    }
    std::size_t Load() const
    {
        BenchProject loaded;
        key.ReadObject(TEXT("project"), factory, loaded);
        return loaded.shots.size();
    }
    void Serialize()
    {
        MemoryOutputStream memory;
        SerializingOutputStream stream(factory, memory);
        stream.Write(project);
        bytes = memory.GetContent();
    }
    std::size_t Deserialize()
    {
        BenchProject loaded;
        MemoryInputStream memory(bytes);
        SerializingInputStream stream(factory, memory);
        stream.Read(loaded);
        return loaded.shots.size();
    }

    ObjectFactory factory;
    BenchProject project;
    SysRegKey key;
    std::string bytes;
};

void AddProjectJobs()
{
    setenv("XDG_DATA_HOME", bench::ScratchFolder::Path().c_str(), 1);
    auto const both = std::make_shared<ProjectStores>(
        SysRegKey(HKEY_CURRENT_USER).CreateSubkey(TEXT("Software\\Bench"), 0, KEY_ALL_ACCESS, nullptr));
    both->Serialize();
    bool const agree = both->Store() && both->Load() == shotCount && both->Deserialize() == shotCount;
    bench::Require(agree, "StoredObject");
    bench::Add("StoredObject/write/ours", both->bytes.size(), [both] { both->Store(); });
    bench::Add("StoredObject/write/memory", both->bytes.size(), [both] { both->Serialize(); });
    bench::Add("StoredObject/read/ours", both->bytes.size(), [both] { benchmark::DoNotOptimize(both->Load()); });
    bench::Add(
        "StoredObject/read/memory", both->bytes.size(), [both] { benchmark::DoNotOptimize(both->Deserialize()); });
}

bench::Source const source(AddJobs);
bench::Source const projectSource(AddProjectJobs);

} // namespace
