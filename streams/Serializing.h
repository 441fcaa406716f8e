#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <typeinfo>
#include <unordered_map>
#include <vector>

#include <kvcore/platform/export.h>
#include <kvcore/platform/unknown.h>
#include <kvcore/streams/FlatMap.h>
#include <kvcore/streams/NumberedReferences.h>
#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Streams.h>

class SerializingInputStream;
class SerializingOutputStream;

/// An object that travels in streams. It writes its fields with the stream operators, objects that it holds by value
/// with `Write` and those it points to with `WriteRef`, and reads them in the same order with the mirror operations.
/// The format has no lengths and no end marks: a stream stays in step only because each object reads exactly what it
/// wrote.
///
/// `streams/ClassMethods.h` registers such a class with a factory in one line.
class KVCORE_API ISerializable : public virtual IUnknown
{
public:
    /// Reads the fields, as a class of `version` wrote them. `version` is never above GetVersion(). What it throws goes
    /// on to whoever called the stream.
    virtual void Read(SerializingInputStream & stream, short version) = 0;
    /// Writes the fields.
    virtual void Write(SerializingOutputStream & stream) const = 0;
    /// The version of what Write writes.
    virtual short GetVersion() const = 0;

protected:
    ~ISerializable() = default;
};

namespace kv::detail
{

/// An interface of method objects beside those of IObjectFactory: a way to an object's ISerializable that knows its
/// class. Without it dynamic_cast has to search the class's bases, for every object.
class KVCORE_API ISerializableCast
{
public:
    /// The object's ISerializable, or null. `object` may be null or of any class.
    virtual ISerializable * ToSerializable(IUnknown * object) const = 0;

protected:
    ~ISerializableCast() = default;
};

/// A value that a stream has written, by its object number, and the clone of it that the stream owns.
struct WrittenValue
{
    int number;
    IUnknown * clone;
};

/// An interface of method objects beside those of IObjectFactory: Compare for many values at once.
class KVCORE_API IValueSearch
{
public:
    /// The first of `count` values for which Compare(object, value.clone) is true, or null.
    virtual WrittenValue const * FindEqual(IUnknown * object, WrittenValue const * values, std::size_t count) const = 0;

protected:
    ~IValueSearch() = default;
};

/// What a method object has to offer, looked up once.
struct ClassInterfaces
{
    ClassInterfaces() = default;
    explicit ClassInterfaces(IObjectFactory::IClassMethod const * methods);

    /// `object` as ISerializable, or null.
    ISerializable * ToSerializable(IUnknown * object) const;

    IObjectFactory::ICreateMethod const * create = nullptr;
    IObjectFactory::ICopyCompareMethod const * copyCompare = nullptr;
    ISerializableCast const * cast = nullptr;
    IValueSearch const * search = nullptr;
};

} // namespace kv::detail

/// Writes object graphs into another stream: a class identifier and a version in front of each object's fields, each
/// object behind a pointer once, and each distinct value of a value class once.
///
/// One stream serves one graph: its object numbers only grow, and what was written stays known until the stream is
/// destroyed. Several top-level objects may share objects, as long as the reader mirrors the calls on one stream.
/// Objects given to WriteRef must therefore stay alive, and every class of the graph loaded, as long as the stream.
///
/// Failures: those of the stream below pass through unchanged. An object of an unregistered class is written without
/// complaint; the reader will not accept it. A graph nested deeper than the calling thread's stack can hold, or one
/// that holds itself by value, throws StreamBase::Exception with code 3, "Objects nested too deep in stream". After a
/// failure the object numbers taken and the pointers seen stay so, hence the bytes written so far cannot be continued:
/// begin again with a new stream.
///
/// Threads: one at a time. The factory may be shared once registration is finished; it is asked once per class, and its
/// answers are kept.
class KVCORE_API SerializingOutputStream : public OutputStream
{
public:
    /// Chains onto `target`. Neither `factory` nor `target` is owned.
    SerializingOutputStream(IObjectFactory const & factory, OutputStream & target);
    /// Releases the clones it keeps of values written.
    ~SerializingOutputStream() noexcept(false) override;

    /// Passes the bytes on as they are.
    void Write(char const * data, int size) override;

    /// Writes an object by value, for Read or Create. An object of a value class that compares equal to one written
    /// before becomes a short record that names the first. The comparison is with a clone taken at that time.
    void Write(ISerializable const & object);

    /// Writes a pointer, for ReadRef. A pointer seen for the first time is followed by the object itself; null and
    /// pointers seen before are short records. Identity is the pointer's value.
    ///
    /// Kept: where the object behind a new pointer goes out as the repeat of an equal value, a second WriteRef of the
    /// same pointer makes a stream that ReadRef refuses ("Reference to non-existing object"). Point to objects of value
    /// classes only once, or write them by value.
    void WriteRef(ISerializable const * object);

private:
    struct WrittenClass
    {
        int id;
        kv::detail::ClassInterfaces methods;
        std::vector<kv::detail::WrittenValue> values;
    };

    WrittenClass & FindClass(std::type_info const & type);
    WrittenClass & AddClass(std::type_info const & type);
    kv::detail::WrittenValue const * FindEqual(WrittenClass const & writtenClass, ISerializable const & object) const;
    void KeepValue(WrittenClass & writtenClass, ISerializable const & object, int number);
    void WriteCommand(int command, int number);
    bool AppendToMemory(void const * record, int size);

    IObjectFactory const * const factory;
    std::uint32_t objectCount;
    std::unordered_map<int, WrittenClass> values;
    kv::detail::FlatMap<std::type_info const *, WrittenClass *> types;
    kv::detail::FlatMap<ISerializable const *, int> references;
};

/// Reads what SerializingOutputStream wrote, through a mirrored order of calls: Read or Create where Write was called,
/// ReadRef where WriteRef was.
///
/// Failures: StreamBase::Exception with these texts, those of the stream below unchanged, and whatever the classes
/// throw. The read position stays where the failure left it.
///
/// | text | code | when |
/// |---|---|---|
/// | Unknown command in stream | 3 | a record begins with 0 and is not the repeat of a value |
/// | Reference to unknown object in stream | 3 | the repeat of a value names an object that is not kept as a value |
/// | Wrong type of object in stream | 3 | the repeat of a value is read into an object of another class |
/// | Unexpected object in stream | 3 | the class is unknown or cannot be created, or is not the target's |
/// | Non-serializable object in stream | 3 | the class's objects have no ISerializable |
/// | Object version too high | 6 | a newer class wrote the object |
/// | Next stream object is not a reference | 3 | ReadRef finds something else |
/// | Reference to non-existing object | 3 | a reference names an object that no earlier reference brought |
/// | Objects nested too deep in stream | 3 | the calling thread's stack is nearly used up |
/// | Duplicate singelton object in stream | 3 | SingeltonObjectExistsException, out of Read(object) |
///
/// A stream's bytes are not trusted to be well meant, but they choose freely among the registered classes: what ReadRef
/// and Create return may be of any of them, so look before a cast.
///
/// Threads: one at a time. The factory may be shared once registration is finished; it is asked once per class, and its
/// answers are kept.
class KVCORE_API SerializingInputStream : public InputStream
{
public:
    /// Thrown by the `Read` of a class that keeps a single instance, when there is one: that instance then takes the
    /// place of the object being read. The class must have read its fields before, so that the stream stays in step.
    ///
    /// It is caught where an object is created; out of Read(object) it goes on to the caller. It derives from
    /// StreamBase::Exception, so that there it is seen as what it is to that caller: a failed stream.
    struct KVCORE_API SingeltonObjectExistsException : StreamBase::Exception
    {
        /// Adds no reference to `object`: the class holds its instance.
        explicit SingeltonObjectExistsException(ISerializable * object);

        ISerializable * object;
    };

    /// Chains onto `source`. Neither `factory` nor `source` is owned.
    SerializingInputStream(IObjectFactory const & factory, InputStream & source);
    /// Releases its references to objects and values.
    ~SerializingInputStream() noexcept(false) override;

    /// Delivers the bytes as they are.
    void Read(char * data, int size) override;

    /// Reads an object into `object`, which must be of the class that was written (today's class, where an old name was
    /// written). After a failure `object` holds whatever its own Read left.
    ///
    /// Kept: a former name is accepted in an object's record, but not in the repeat of a value, which compares the
    /// class of the first such object as it is now.
    void Read(ISerializable & object);

    /// Reads an object into a new one. The caller gets a reference to it, and releases it. If the class keeps a single
    /// instance, the result is that instance, and no reference is added for the caller.
    ISerializable * Create();
    /// The same; `owned` says whether the caller got a reference.
    ISerializable * Create(bool & owned);

    /// Reads a pointer, which may be null. Where it brings a new object, the caller gets a reference to it as from
    /// Create, and the stream keeps another one until it is destroyed. Where it repeats an earlier one, the result is
    /// borrowed: AddRef what is to be kept.
    ISerializable * ReadRef();
    /// The same; `owned` says whether the caller got a reference. Which of two pointers to one object comes first is
    /// for the bytes to say, so a class that reads what others may have written uses this form.
    ISerializable * ReadRef(bool & owned);

private:
    struct KnownClass
    {
        kv::detail::ClassInterfaces methods;
        int registeredId;
    };
    struct KnownType
    {
        kv::detail::ClassInterfaces methods;
        int id;
    };
    struct KnownValue
    {
        IUnknown * clone;
        KnownType const * type;
    };

    int ReadNumber();
    ISerializable * ReadObject(ISerializable * target, bool keepReference, bool & owned);
    ISerializable * ReadRepeat(ISerializable * target, int targetId);
    ISerializable * ReadRecord(
        ISerializable * target, KnownClass const & known, std::uint64_t number, bool keepReference, bool & owned);
    KnownClass const & FindClass(int id);
    KnownType const & FindType(std::type_info const & type);
    void KeepReference(std::uint64_t number, ISerializable * object);
    void KeepValue(std::uint64_t number, IUnknown * clone);

    IObjectFactory const * const factory;
    std::uint64_t objectCount;
    // By object number. They own a reference to each.
    kv::detail::FlatMap<std::uint64_t, KnownValue> values;
    kv::detail::NumberedReferences<ISerializable> references;
    std::deque<KnownClass> classes;
    std::deque<KnownType> types;
    kv::detail::FlatMap<int, KnownClass const *> classesById;
    kv::detail::FlatMap<std::type_info const *, KnownType const *> typesByInfo;
};
