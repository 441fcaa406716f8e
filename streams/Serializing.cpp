#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <utility>

#include <kvcore/platform/StackSpace.h>
#include <kvcore/platform/types.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/Serializing.h>

namespace
{

// Stored formats: none of these can change.
constexpr int commandMarker = 0;
constexpr int valueRepeatCommand = static_cast<int>(0x96190311u);
constexpr int referenceCommand = static_cast<int>(0x80190311u);
constexpr int nullReference = 0;
constexpr int nullReferenceAtStart = -1;

// What one level of a graph may need between two looks at the stack: the class's own Read or Write, the streams below,
// and the unwinding of an exception. Measured levels take well under 4 KiB, also with sanitizers. A thread with a small
// stack knows that it has one: there the margin is a part of it, down to what throwing the refusal takes.
constexpr std::size_t widestMargin = 64 * 1024;
constexpr std::size_t leastMargin = 4 * 1024;
constexpr std::size_t marginPart = 4;

std::size_t StackMargin()
{
    return std::clamp(kv::platform::StackBytes() / marginPart, leastMargin, widestMargin);
}

// Apart from its callers, whose frames would otherwise hold the text: they recurse with the graph.
[[noreturn, gnu::cold, gnu::noinline]] void Fail(WCHAR const * text, int code = 3)
{
    throw StreamBase::Exception{code, text};
}

/// A reader's recursion is as deep as the bytes say, a writer's as deep as the graph: neither may end in a crash.
void RequireStack()
{
    std::size_t const left = kv::platform::StackBytesLeft();
    if (left < widestMargin && left < StackMargin())
    {
        Fail(TEXT("Objects nested too deep in stream"));
    }
}

/// The fields in front of an object's own, as they lie one behind the other in a stream.
struct Header
{
    int id;
    short version;
};
constexpr int headerSize = offsetof(Header, version) + sizeof(short);
static_assert(headerSize == 6);

/// The operations of method objects take objects that they leave as they are without const.
IUnknown * AsUnknown(ISerializable const & object)
{
    return const_cast<ISerializable *>(&object);
}

} // namespace

kv::detail::ClassInterfaces::ClassInterfaces(IObjectFactory::IClassMethod const * methods)
    : create(dynamic_cast<IObjectFactory::ICreateMethod const *>(methods)),
      copyCompare(dynamic_cast<IObjectFactory::ICopyCompareMethod const *>(methods)),
      cast(dynamic_cast<ISerializableCast const *>(methods)),
      search(dynamic_cast<IValueSearch const *>(methods))
{
}

ISerializable * kv::detail::ClassInterfaces::ToSerializable(IUnknown * object) const
{
    return cast != nullptr ? cast->ToSerializable(object) : dynamic_cast<ISerializable *>(object);
}

SerializingOutputStream::SerializingOutputStream(IObjectFactory const & newFactory, OutputStream & target)
    : OutputStream(&target), factory(&newFactory), objectCount(0)
{
}

SerializingOutputStream::~SerializingOutputStream() noexcept(false)
{
    for (auto const & entry : values)
    {
        for (kv::detail::WrittenValue const & value : entry.second.values)
        {
            value.clone->Release();
        }
    }
}

void SerializingOutputStream::Write(char const * data, int size)
{
    downstream->Write(data, size);
}

void SerializingOutputStream::Write(ISerializable const & object)
{
    WrittenClass & writtenClass = FindClass(typeid(object));
    int const number = static_cast<int>(objectCount++);
    if (writtenClass.methods.copyCompare != nullptr)
    {
        kv::detail::WrittenValue const * const equal = FindEqual(writtenClass, object);
        if (equal != nullptr)
        {
            WriteCommand(valueRepeatCommand, equal->number);
            return;
        }
        KeepValue(writtenClass, object, number);
    }
    RequireStack();
    short const version = object.GetVersion();
    Header const header = {writtenClass.id, version};
    if (!AppendToMemory(&header, headerSize))
    {
        *this << writtenClass.id << version;
    }
    object.Write(*this);
}

SerializingOutputStream::WrittenClass & SerializingOutputStream::FindClass(std::type_info const & type)
{
    WrittenClass * const * const known = types.Find(&type);
    return known != nullptr ? **known : AddClass(type);
}

/// Several types may have one identifier, and then share their values.
SerializingOutputStream::WrittenClass & SerializingOutputStream::AddClass(std::type_info const & type)
{
    int const id = factory->GetClassID(type);
    auto const found = values.find(id);
    WrittenClass & writtenClass = found != values.end()
        ? found->second
        : values.emplace(id, WrittenClass{id, kv::detail::ClassInterfaces(factory->GetClassMethods(id)), {}})
              .first->second;
    types.Insert(&type, &writtenClass);
    return writtenClass;
}

/// In the order in which the values were written: the first that compares equal is the one that the stream names.
kv::detail::WrittenValue const *
SerializingOutputStream::FindEqual(WrittenClass const & writtenClass, ISerializable const & object) const
{
    IUnknown * const unknown = AsUnknown(object);
    if (writtenClass.methods.search != nullptr)
    {
        return writtenClass.methods.search->FindEqual(unknown, writtenClass.values.data(), writtenClass.values.size());
    }
    for (kv::detail::WrittenValue const & value : writtenClass.values)
    {
        if (writtenClass.methods.copyCompare->Compare(unknown, value.clone))
        {
            return &value;
        }
    }
    return nullptr;
}

void SerializingOutputStream::KeepValue(WrittenClass & writtenClass, ISerializable const & object, int number)
{
    IUnknown * const clone = writtenClass.methods.copyCompare->Clone(AsUnknown(object));
    if (clone == nullptr)
    {
        return;
    }
    try
    {
        writtenClass.values.push_back({number, clone});
    }
    catch (...)
    {
        clone->Release();
        throw;
    }
}

void SerializingOutputStream::WriteCommand(int command, int number)
{
    int const record[] = {commandMarker, command, number};
    static_assert(sizeof(record) == 12);
    if (!AppendToMemory(record, sizeof(record)))
    {
        *this << commandMarker << command << number;
    }
}

/// Each field of a record is one write for whatever stands below. Memory of the library is no derived class that would
/// see it, and where it has room already no write can fail, so nobody can tell one from many.
bool SerializingOutputStream::AppendToMemory(void const * record, int size)
{
    OutputStream & target = *downstream;
    return typeid(target) == typeid(MemoryOutputStream) && typeid(*this) == typeid(SerializingOutputStream) &&
        static_cast<MemoryOutputStream &>(target).AppendWithoutAllocation(static_cast<char const *>(record), size);
}

void SerializingOutputStream::WriteRef(ISerializable const * object)
{
    int const number = static_cast<int>(objectCount++);
    if (object == nullptr)
    {
        // 0 as the index of reference 0 would announce a new object.
        WriteCommand(referenceCommand, number == 0 ? nullReferenceAtStart : nullReference);
        return;
    }
    int const * const known = references.Find(object);
    if (known != nullptr)
    {
        WriteCommand(referenceCommand, *known);
        return;
    }
    // Known before its record is out, so that a cycle finds it. The object takes the next number.
    references.Insert(object, static_cast<int>(objectCount));
    WriteCommand(referenceCommand, number);
    Write(*object);
}

SerializingInputStream::SingeltonObjectExistsException::SingeltonObjectExistsException(ISerializable * newObject)
    : StreamBase::Exception{3, TEXT("Duplicate singelton object in stream")}, object(newObject)
{
}

SerializingInputStream::SerializingInputStream(IObjectFactory const & newFactory, InputStream & newSource)
    : InputStream(&newSource), factory(&newFactory), objectCount(0)
{
}

SerializingInputStream::~SerializingInputStream() noexcept(false)
{
    values.ForEach([](KnownValue const & value) { value.clone->Release(); });
    std::vector<ISerializable *> const & objects = references.All();
    // The objects lie scattered, and each waits for memory: the next ones are asked for meanwhile.
    constexpr std::size_t ahead = 8;
    for (std::size_t i = 0; i < objects.size(); ++i)
    {
        __builtin_prefetch(objects[std::min(i + ahead, objects.size() - 1)]);
        if (objects[i] != nullptr)
        {
            objects[i]->Release();
        }
    }
}

void SerializingInputStream::Read(char * data, int size)
{
    source->Read(data, size);
}

void SerializingInputStream::Read(ISerializable & object)
{
    bool owned;
    ReadObject(&object, false, owned);
}

ISerializable * SerializingInputStream::Create()
{
    bool owned;
    return ReadObject(nullptr, false, owned);
}

ISerializable * SerializingInputStream::Create(bool & owned)
{
    return ReadObject(nullptr, false, owned);
}

int SerializingInputStream::ReadNumber()
{
    int number;
    Read(reinterpret_cast<char *>(&number), sizeof(number));
    return number;
}

/// `target` null for a new object; `keepReference` for one that references can name; `owned` tells whether the caller
/// gets a reference.
ISerializable * SerializingInputStream::ReadObject(ISerializable * target, bool keepReference, bool & owned)
{
    int const targetId = target != nullptr ? FindType(typeid(*target)).id : 0;
    std::uint64_t const number = objectCount++;
    int const word = ReadNumber();
    if (word == commandMarker)
    {
        owned = target == nullptr;
        return ReadRepeat(target, targetId);
    }
    KnownClass const & known = FindClass(word);
    if (target != nullptr && known.registeredId != targetId)
    {
        Fail(TEXT("Unexpected object in stream"));
    }
    return ReadRecord(target, known, number, keepReference, owned);
}

namespace
{

/// The key of a number in `values`, where 0 is taken for free places. Numbers come from the stream: any of the 2^32 is
/// possible.
std::uint64_t KeyOf(std::uint64_t number)
{
    return number + 1;
}

/// Takes over the reference to `object`, which may be null, and hands it on as ISerializable.
ISerializable * RequireSerializable(kv::detail::ClassInterfaces const & methods, IUnknown * object)
{
    ISerializable * const serializable = methods.ToSerializable(object);
    if (serializable == nullptr)
    {
        if (object != nullptr)
        {
            object->Release();
        }
        Fail(TEXT("Non-serializable object in stream"));
    }
    return serializable;
}

} // namespace

/// The repeat of a value, behind its marker.
ISerializable * SerializingInputStream::ReadRepeat(ISerializable * target, int targetId)
{
    if (ReadNumber() != valueRepeatCommand)
    {
        Fail(TEXT("Unknown command in stream"));
    }
    KnownValue const * const found = values.Find(KeyOf(static_cast<unsigned int>(ReadNumber())));
    if (found == nullptr)
    {
        Fail(TEXT("Reference to unknown object in stream"));
    }
    IUnknown * const stored = found->clone;
    KnownType const & type = *found->type;
    // Kept: no look at former names here. The clone is of today's class, whatever name its record had.
    if (target != nullptr && type.id != targetId)
    {
        Fail(TEXT("Wrong type of object in stream"));
    }
    if (type.methods.copyCompare == nullptr)
    {
        Fail(TEXT("Unexpected object in stream"));
    }
    if (target != nullptr)
    {
        type.methods.copyCompare->Copy(stored, target);
        return target;
    }
    return RequireSerializable(type.methods, type.methods.copyCompare->Clone(stored));
}

namespace
{

/// Holds the reference to an object that was created here until someone else takes it.
class CreatedObject
{
public:
    explicit CreatedObject(IUnknown * newObject) : object(newObject) {}
    CreatedObject(CreatedObject const &) = delete;
    CreatedObject & operator=(CreatedObject const &) = delete;
    ~CreatedObject()
    {
        Release();
    }

    void Release()
    {
        if (object != nullptr)
        {
            std::exchange(object, nullptr)->Release();
        }
    }

    /// True if there was a reference, which is the caller's now.
    bool Detach()
    {
        return std::exchange(object, nullptr) != nullptr;
    }

private:
    IUnknown * object;
};

} // namespace

/// A record behind its class identifier.
ISerializable * SerializingInputStream::ReadRecord(
    ISerializable * target, KnownClass const & known, std::uint64_t number, bool keepReference, bool & owned)
{
    RequireStack();
    short version;
    Read(reinterpret_cast<char *>(&version), sizeof(version));
    ISerializable * object =
        target != nullptr ? target : RequireSerializable(known.methods, known.methods.create->Create());
    CreatedObject created(target != nullptr ? nullptr : object);
    if (keepReference)
    {
        // Before its fields are read, so that a cycle finds it.
        KeepReference(number, object);
    }
    try
    {
        if (version > object->GetVersion())
        {
            Fail(TEXT("Object version too high"), 6);
        }
        object->Read(*this, version);
    }
    catch (SingeltonObjectExistsException const & exists)
    {
        // Kept: also when it comes from an object that this one reads by value, whose instance then takes this one's
        // place. Classes that hold a single instance by value catch it themselves.
        if (target != nullptr)
        {
            throw;
        }
        created.Release();
        object = exists.object;
        if (keepReference)
        {
            KeepReference(number, object);
        }
    }
    if (known.methods.copyCompare != nullptr && object != nullptr)
    {
        KeepValue(number, known.methods.copyCompare->Clone(object));
    }
    owned = created.Detach();
    return object;
}

/// The class of a record. A stream that goes on asks for it again and again, so it is kept; failures are not.
SerializingInputStream::KnownClass const & SerializingInputStream::FindClass(int id)
{
    KnownClass const * const * const found = classesById.Find(id);
    if (found != nullptr)
    {
        return **found;
    }
    kv::detail::ClassInterfaces const methods(factory->GetClassMethods(id));
    if (methods.create == nullptr)
    {
        Fail(TEXT("Unexpected object in stream"));
    }
    KnownClass const & known = classes.emplace_back(KnownClass{methods, factory->GetRegisteredClassID(id)});
    classesById.Insert(id, &known);
    return known;
}

SerializingInputStream::KnownType const & SerializingInputStream::FindType(std::type_info const & type)
{
    KnownType const * const * const found = typesByInfo.Find(&type);
    if (found != nullptr)
    {
        return **found;
    }
    int const id = factory->GetClassID(type);
    KnownType const & known =
        types.emplace_back(KnownType{kv::detail::ClassInterfaces(factory->GetClassMethods(id)), id});
    typesByInfo.Insert(&type, &known);
    return known;
}

/// Adds a reference to `object`, which may be null, for the entry of `number`; a second call replaces the first's.
void SerializingInputStream::KeepReference(std::uint64_t number, ISerializable * object)
{
    ISerializable ** const entry = references.Find(number);
    ISerializable * const replaced = entry != nullptr ? std::exchange(*entry, object) : nullptr;
    if (entry == nullptr)
    {
        references.Append(number, object);
    }
    if (object != nullptr)
    {
        object->AddRef();
    }
    if (replaced != nullptr)
    {
        replaced->Release();
    }
}

/// Takes over the reference to `clone`, which may be null: then there is no value to repeat.
void SerializingInputStream::KeepValue(std::uint64_t number, IUnknown * clone)
{
    CreatedObject held(clone);
    if (clone != nullptr)
    {
        values.Insert(KeyOf(number), {clone, &FindType(typeid(*clone))});
        held.Detach();
    }
}

ISerializable * SerializingInputStream::ReadRef()
{
    bool owned;
    return ReadRef(owned);
}

ISerializable * SerializingInputStream::ReadRef(bool & owned)
{
    owned = false;
    int const number = static_cast<int>(objectCount++);
    int const marker = ReadNumber();
    int const command = ReadNumber();
    if (marker != commandMarker || command != referenceCommand)
    {
        Fail(TEXT("Next stream object is not a reference"));
    }
    int const index = ReadNumber();
    if (index == number)
    {
        return ReadObject(nullptr, true, owned);
    }
    if (index == nullReference || index == nullReferenceAtStart)
    {
        return nullptr;
    }
    ISerializable * const * const found = references.Find(static_cast<unsigned int>(index));
    if (found == nullptr || *found == nullptr)
    {
        Fail(TEXT("Reference to non-existing object"));
    }
    return *found;
}
