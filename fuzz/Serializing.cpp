// SerializingInputStream on any bytes, over a factory with plain classes, a value class, a class known under a former
// name, a class of which one object may exist, and classes that cannot be read.
//
// What must hold for every input: the read ends in a graph or in one of the documented failures; no object outlives the
// streams and the references handed out; and a graph that was read is written to bytes that read back and are written
// to the same bytes again.

#include <functional>
#include <memory>
#include <set>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Serializing.h>

#include "Fuzz.h"

namespace
{

int liveObjects = 0;

/// Every class here derives from it, so that a leaked object shows.
class Counted : public virtual KVUnknown, public ISerializable
{
public:
    Counted()
    {
        ++liveObjects;
    }
    Counted(Counted const & other) : IUnknown(other), KVUnknown(other), ISerializable(other)
    {
        ++liveObjects;
    }
    Counted & operator=(Counted const &) = default;
    ~Counted() override
    {
        --liveObjects;
    }
};

/// The pointers that ReadRef has given on the stream being read. The first time, the reference is the caller's; a
/// repeat is borrowed.
std::set<ISerializable *> known;

/// Those that are being read right now: a reference to one is a repeat, though the first is yet to be handed out.
std::set<ISerializable *> unfinished;

/// What a program holds of one ReadRef or Create. `owned` is null for what is borrowed.
struct Held
{
    ISerializable * object = nullptr;
    bool owned = false;

    void Drop()
    {
        if (owned)
        {
            object->Release();
        }
        *this = Held();
    }
};

Held Take(ISerializable * object)
{
    return {object, object != nullptr && !unfinished.contains(object) && known.insert(object).second};
}

/// A plain class that holds others, by reference and by value.
class Node : public Counted
{
public:
    Node() = default;
    Node(Node const &) = delete;
    ~Node() override
    {
        for (Held & child : children)
        {
            child.Drop();
        }
        embedded.Drop();
    }

    void Read(SerializingInputStream & stream, short) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override
    {
        return 2;
    }

private:
    int number = 0;
    std::vector<Held> children;
    Held embedded;
};

/// A value class: equal ones are written once.
class Value : public Counted
{
public:
    void Read(SerializingInputStream & stream, short version) override
    {
        stream >> number;
        if (version > 0)
        {
            stream >> text;
        }
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number << text;
    }
    short GetVersion() const override
    {
        return 1;
    }
    bool operator==(Value const & other) const
    {
        return number == other.number && text == other.text;
    }

private:
    short number = 0;
    String text;
};

/// A value class that holds a value by value.
class Range : public Counted
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream.Read(first);
        stream.Read(last);
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream.Write(first);
        stream.Write(last);
    }
    short GetVersion() const override
    {
        return 0;
    }
    bool operator==(Range const & other) const
    {
        return first == other.first && last == other.last;
    }

private:
    Value first;
    Value last;
};

/// A class that had another name once.
class Renamed : public Counted
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream >> name;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << name;
    }
    short GetVersion() const override
    {
        return 3;
    }

private:
    std::string name;
};

/// A class of which one object exists: whoever reads a further one gets the first.
class Single : public Counted
{
public:
    ~Single() override
    {
        instance = instance == this ? nullptr : instance;
    }

    void Read(SerializingInputStream & stream, short) override
    {
        int read = 0;
        stream >> read;
        if (instance != nullptr && instance != this)
        {
            throw SerializingInputStream::SingeltonObjectExistsException(instance);
        }
        number = read;
        instance = this;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number;
    }
    short GetVersion() const override
    {
        return 0;
    }

private:
    static inline Single * instance = nullptr;
    int number = 0;
};

/// Can be created, and is no ISerializable.
class Mute : public virtual KVUnknown
{
public:
    Mute()
    {
        ++liveObjects;
    }
    ~Mute() override
    {
        --liveObjects;
    }
};

void Node::Read(SerializingInputStream & stream, short version)
{
    struct Unfinished
    {
        explicit Unfinished(ISerializable * object) : node(object)
        {
            unfinished.insert(node);
        }
        ~Unfinished()
        {
            unfinished.erase(node);
        }
        ISerializable * node;
    } const mark(this);
    stream >> number;
    for (unsigned count = static_cast<unsigned>(number) % 4; count != 0; --count)
    {
        children.push_back(Take(stream.ReadRef()));
    }
    if (version > 1 && number & 4)
    {
        embedded = Take(stream.Create());
    }
}

void Node::Write(SerializingOutputStream & stream) const
{
    int const written = static_cast<int>(children.size()) + (embedded.object != nullptr ? 4 : 0);
    stream << written;
    for (Held const & child : children)
    {
        stream.WriteRef(child.object);
    }
    if (embedded.object != nullptr)
    {
        stream.Write(*embedded.object);
    }
}

/// Stated names, because seeds hold the identifiers.
ObjectFactory const & Factory()
{
    static ObjectFactory factory;
    static bool const registered = RegisterTypeAs<Node>(factory, "Node") &&
        RegisterTypeAs<ValueClassMethods<Value>>(factory, "Value") &&
        RegisterTypeAs<ValueClassMethods<Range>>(factory, "Range") && RegisterTypeAs<Renamed>(factory, "Renamed") &&
        RegisterFormerName<Renamed>(factory, "Formerly") && RegisterTypeAs<Single>(factory, "Single") &&
        RegisterTypeAs<Mute>(factory, "Mute") && RegisterTypeAs<AbstractClassMethods<Counted>>(factory, "Abstract");
    fuzz::Check(registered, "a class has no identifier of its own");
    return factory;
}

/// What a program does at the top of a stream.
enum class Call
{
    Create,
    ReadRef,
    ReadValue,
    ReadRenamed,
    ReadNode,
    ReadSingle
};
int const callCount = 6;

/// A program that reads a few objects from one stream and keeps them.
class Program
{
public:
    ~Program()
    {
        for (auto held = results.rbegin(); held != results.rend(); ++held)
        {
            held->Drop();
        }
    }

    void Read(SerializingInputStream & stream, std::vector<Call> const & wanted)
    {
        for (Call call : wanted)
        {
            ReadOne(stream, call);
            calls.push_back(call);
        }
    }

    void Write(SerializingOutputStream & stream) const
    {
        for (std::size_t i = 0; i < calls.size(); ++i)
        {
            if (calls[i] == Call::ReadRef)
            {
                stream.WriteRef(results[i].object);
            }
            else
            {
                stream.Write(*results[i].object);
            }
        }
    }

private:
    void ReadOne(SerializingInputStream & stream, Call call)
    {
        if (call == Call::Create)
        {
            results.push_back(Take(stream.Create()));
        }
        else if (call == Call::ReadRef)
        {
            results.push_back(Take(stream.ReadRef()));
        }
        else
        {
            ISerializable * const target = call == Call::ReadValue ? static_cast<ISerializable *>(new Value)
                : call == Call::ReadRenamed                        ? static_cast<ISerializable *>(new Renamed)
                : call == Call::ReadNode                           ? static_cast<ISerializable *>(new Node)
                                                                   : static_cast<ISerializable *>(new Single);
            known.insert(target);
            results.push_back({target, true});
            stream.Read(*target);
        }
    }

    std::vector<Call> calls;
    std::vector<Held> results;
};

struct Outcome
{
    bool read = false;
    String failure;
    std::string written;
};

/// Reads `bytes` and writes what was read.
Outcome ReadAndWrite(std::string const & bytes, std::vector<Call> const & calls)
{
    known.clear();
    Outcome outcome;
    {
        // The stream goes last: what is borrowed from it must not outlive it.
        MemoryInputStream source(bytes);
        SerializingInputStream stream(Factory(), source);
        Program program;
        try
        {
            program.Read(stream, calls);
            outcome.read = true;
        }
        catch (StreamBase::Exception const & exception)
        {
            fuzz::Check(exception.code == 3 || exception.code == 5 || exception.code == 6, "an undocumented code");
            outcome.failure = exception.text;
        }
        fuzz::Check(outcome.read || !outcome.failure.empty(), "a failure without a text");
        if (outcome.read)
        {
            MemoryOutputStream target;
            {
                SerializingOutputStream output(Factory(), target);
                program.Write(output);
            }
            outcome.written = target.GetContent();
        }
    }
    fuzz::Check(liveObjects == 0, "objects are left over");
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    fuzz::Input input(data, size);
    std::vector<Call> calls(1 + input.Byte() % 4);
    for (Call & call : calls)
    {
        call = static_cast<Call>(input.Byte() % callCount);
    }
    Outcome const first = ReadAndWrite(input.Rest(), calls);
    if (!first.read)
    {
        return 0;
    }
    Outcome const second = ReadAndWrite(first.written, calls);
    if (!second.read)
    {
        // A reference that introduced a repeated value is not known by its number: the format's documented limit.
        fuzz::Check(second.failure == TEXT("Reference to non-existing object"), "what was written cannot be read");
        return 0;
    }
    fuzz::Check(second.written == first.written, "the second writing differs from the first");
    return 0;
}
