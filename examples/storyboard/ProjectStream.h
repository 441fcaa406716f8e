#pragma once

#include <cstdint>
#include <map>

#include <kvcore/examples/storyboard/Model.h>
#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Serializing.h>
#include <kvcore/tools/support/CountingStreams.h>

namespace Storyboard
{

/// Makes the classes of a project, under the names that they are stored by; the former ones too.
///
/// One for the process, made at the first call. Any thread: nothing is registered later.
IObjectFactory const & ProjectFactory();

/// How often the format stored something once that the project has several times. Sizes in bytes.
struct SharingStatistics
{
    /// What a repeat takes on the wire.
    static constexpr int repeatSize = 12;

    std::int64_t references = 0;
    std::int64_t repeatedReferences = 0;
    std::int64_t repeatedObjectsSize = 0; ///< what the repeated objects would have taken, had they been written again
    std::int64_t values = 0;
    std::int64_t repeatedValues = 0;
    std::int64_t repeatedValuesSize = 0;
};

/// Reads a project's objects. It adds to the library's stream what reading from files of unknown origin needs: who owns
/// a reference that was read, and limits.
///
/// The model's classes can be read from this stream only; from any other they throw std::bad_cast.
class ProjectInputStream : public SerializingInputStream
{
public:
    /// A project's objects lie within each other four deep.
    static constexpr int maxDepth = 8;
    /// Records and references in one project. A few bytes of compressed data can claim to be any number of objects.
    static constexpr std::int64_t maxObjects = 8'000'000;
    /// So many clips fit in: each takes one reference from its folder, one from a collection, one to its source and
    /// three values.
    static constexpr std::int64_t maxClips = 1'000'000;

    ProjectInputStream(
        IObjectFactory const & classFactory, kv::tools::CountingInputStream & counted,
        std::int64_t limitOfObjects = maxObjects);

    /// Reads a reference to an object of the class `T`, and owns it.
    ///
    /// Fails with code 3: "Missing object in project" for a null reference, "Wrong object in project" for another
    /// class.
    template <typename T>
    Ptr<T> ReadShared()
    {
        Ptr<ISerializable> const object = ReadAnyShared();
        T * const typed = dynamic_cast<T *>(object.Get());
        if (!typed)
        {
            throw StreamBase::Exception{3, TEXT("Wrong object in project")};
        }
        return Ptr<T>::Share(typed);
    }

    /// Reads a value into `target`.
    template <typename T>
    void ReadValue(T & target)
    {
        std::int64_t const before = records;
        Read(target);
        CountValue(records == before, target.PayloadSize());
    }
    using SerializingInputStream::Read;

    SharingStatistics const & Statistics() const
    {
        return statistics;
    }

    /// Stands in each object's Read for as long as it runs: keeps the account of what was begun, and guards the limits.
    class Record
    {
    public:
        /// For an object that references can lead to. Fails with code 3: "Objects nested too deeply in project", "Too
        /// many objects in project".
        Record(SerializingInputStream & serializingStream, ISerializable const & referable);
        /// For a value.
        explicit Record(SerializingInputStream & serializingStream);
        ~Record();
        Record(Record const &) = delete;
        Record & operator=(Record const &) = delete;

        ProjectInputStream & Stream() const
        {
            return stream;
        }

    private:
        Record(ProjectInputStream & projectStream, ISerializable const * referable);

        ProjectInputStream & stream;
        ISerializable const * const object;
        Record * const outer;
        std::int64_t const start;
        std::int64_t nested = 0; // bytes of the records within this one
    };

private:
    static constexpr int recordHeadSize = 6; // class identifier and version

    struct Begun
    {
        std::int64_t number; // in the order in which their reading began
        std::int64_t size;   // of the record, without those within it
    };

    std::int64_t Position() const
    {
        return static_cast<std::int64_t>(input.Count());
    }
    Ptr<ISerializable> ReadAnyShared();
    void CountValue(bool repeated, std::int64_t payloadSize);
    void CountObject();

    kv::tools::CountingInputStream & input;
    std::int64_t const objectLimit;
    SharingStatistics statistics;
    std::map<ISerializable const *, Begun> begun;
    Record * innermost = nullptr;
    int depth = 0;
    std::int64_t records = 0;
    std::int64_t objects = 0;
};

} // namespace Storyboard
