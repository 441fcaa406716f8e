// Objects that a key of the registry holds, as they come, mangled, or made of any bytes behind good compression.
//
// What must hold for every input: reading ends in an object or in one of the documented failures, no object outlives
// what was handed out, and an object that was read is stored to bytes that read back and are stored as the same again.

#include <set>
#include <string>
#include <vector>

#include <kvcore/config/RegistryKeyBase.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactory.h>

#include <config/MemoryKey.h>

#include "Fuzz.h"

namespace
{

int liveObjects = 0;

/// What ReadRef has given on the stream being read: the first time the reference is the caller's, a repeat is borrowed.
std::set<ISerializable *> known;

/// A clip, or a folder of others, as a project has them. It keeps what it refers to, but for what it is in itself.
class Item : public virtual KVUnknown, public ISerializable
{
public:
    Item()
    {
        ++liveObjects;
    }
    Item(Item const &) = delete;
    ~Item() override
    {
        for (ISerializable * const child : children)
        {
            child->Release();
        }
        --liveObjects;
    }

    void Read(SerializingInputStream & stream, short version) override
    {
        isFinished = false;
        stream >> number >> name;
        if (version > 0)
        {
            stream >> comment;
        }
        for (unsigned count = static_cast<unsigned>(number) % 4; count != 0; --count)
        {
            Keep(stream.ReadRef());
        }
        isFinished = true;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << static_cast<int>(children.size()) << name << comment;
        for (ISerializable * const child : children)
        {
            stream.WriteRef(child);
        }
    }
    short GetVersion() const override
    {
        return 1;
    }

    void Add(ISerializable * child)
    {
        children.push_back(child);
    }

    String name;
    std::string comment;

private:
    void Keep(ISerializable * object)
    {
        auto const * const item = dynamic_cast<Item *>(object);
        if (item == nullptr || !item->isFinished)
        {
            return;
        }
        if (!known.insert(object).second)
        {
            object->AddRef();
        }
        children.push_back(object);
    }

    int number = 0;
    std::vector<ISerializable *> children;
    bool isFinished = true;
};

ObjectFactory const & Factory()
{
    static ObjectFactory factory;
    static bool const registered = RegisterTypeAs<Item>(factory, "Item");
    fuzz::Check(registered, "the class has no identifier of its own");
    return factory;
}

constexpr WCHAR const * valueName = TEXT("object");

/// A project as it is stored.
std::string Stored()
{
    Item project;
    project.name = TEXT("project");
    for (int i = 0; i < 3; ++i)
    {
        Item * const clip = new Item;
        clip->name = String::FromNum(i);
        clip->comment = "a comment that is there again";
        project.Add(clip);
    }
    MemoryKey key;
    std::string bytes;
    fuzz::Check(
        key.WriteObject(valueName, Factory(), project) && key.GetBinary(valueName, bytes), "a project is not stored");
    return bytes;
}

/// The input as the bytes of a stored value.
std::string ValueOf(fuzz::Input & input, unsigned kind)
{
    if (kind == 0)
    {
        return input.Rest();
    }
    if (kind == 1)
    {
        std::string const bytes = input.Rest();
        MemoryOutputStream memory;
        {
            CompressingStream compressed(memory, -1);
            compressed.Write(bytes.data(), static_cast<int>(bytes.size()));
        }
        return memory.GetContent();
    }
    static std::string const stored = Stored();
    std::string bytes = stored;
    bytes.resize(bytes.size() - input.Byte() % 8);
    while (!input.AtEnd())
    {
        std::size_t const place = input.Word() % bytes.size();
        bytes[place] = static_cast<char>(bytes[place] ^ input.Byte());
    }
    return bytes;
}

/// Reads the value that the key holds and stores it anew. Whether it was read.
bool ReadAndWrite(MemoryKey & key, bool isCreated)
{
    known.clear();
    Item target;
    ISerializable * created = nullptr;
    try
    {
        bool ok = false;
        created = key.ReadObjectInternal(valueName, Factory(), isCreated ? nullptr : &target, ok);
        fuzz::Check(ok == (created != nullptr), "the flag and the object differ");
    }
    catch (StreamBase::Exception const & exception)
    {
        int const code = exception.code;
        fuzz::Check(code == 2 || code == 3 || code == 5 || code == 6, "an undocumented code");
        fuzz::Check(!exception.text.empty(), "a failure without a text");
        return false;
    }
    if (created != nullptr)
    {
        fuzz::Check(key.WriteObject(valueName, Factory(), *created), "an object that was read is not stored");
    }
    if (isCreated && created != nullptr)
    {
        created->Release();
    }
    return created != nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    unsigned const kind = input.Byte();
    bool const isCreated = kind & 4;
    MemoryKey key;
    key.SetBinary(valueName, ValueOf(input, kind % 4));
    bool const isRead = ReadAndWrite(key, isCreated);
    fuzz::Check(liveObjects == 0, "objects are left over");
    if (isRead)
    {
        std::string first;
        std::string second;
        key.GetBinary(valueName, first);
        fuzz::Check(ReadAndWrite(key, isCreated), "what was stored cannot be read");
        key.GetBinary(valueName, second);
        fuzz::Check(first == second, "the second storing differs from the first");
        fuzz::Check(liveObjects == 0, "objects are left over");
    }
    return 0;
}
