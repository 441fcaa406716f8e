#include <kvcore/examples/storyboard/ProjectStream.h>

#include <kvcore/streams/ClassMethods.h>

namespace Storyboard
{

namespace
{

class Factory : public ObjectFactory
{
public:
    Factory()
    {
        // By type: the name in the file is that of the C++ class.
        RegisterType<Project>(*this);
        RegisterType<Bin>(*this);
        RegisterType<Clip>(*this);
        RegisterType<Media>(*this);
        // By stated name: these classes can be renamed without a trace in the files.
        RegisterTypeAs<ValueClassMethods<Format>>(*this, "Storyboard::Format");
        RegisterTypeAs<ValueClassMethods<TimeRange>>(*this, "Storyboard::Range");
        RegisterTypeAs<ValueClassMethods<Transition>>(*this, "Storyboard::Transition");
        // By former name: projects of before the change are read as ever.
        RegisterFormerName<Media>(*this, "Storyboard::Footage");
    }
};

} // namespace

IObjectFactory const & ProjectFactory()
{
    static Factory const factory;
    return factory;
}

ProjectInputStream::ProjectInputStream(
    IObjectFactory const & classFactory, kv::tools::CountingInputStream & counted, std::int64_t limitOfObjects)
    : SerializingInputStream(classFactory, counted), input(counted), objectLimit(limitOfObjects)
{
}

Ptr<ISerializable> ProjectInputStream::ReadAnyShared()
{
    CountObject();
    std::int64_t const begunBefore = records;
    ISerializable * const object = ReadRef();
    if (!object)
    {
        throw StreamBase::Exception{3, TEXT("Missing object in project")};
    }
    ++statistics.references;
    // The caller of ReadRef owns the reference to an object that it introduced, and borrows one that was known. Which
    // it was is seen from when the object's reading began: a forged reference may lead to an object that is still being
    // read.
    auto const known = begun.find(object);
    if (known == begun.end() || known->second.number >= begunBefore)
    {
        return Ptr<ISerializable>::Adopt(object);
    }
    ++statistics.repeatedReferences;
    statistics.repeatedObjectsSize += known->second.size;
    return Ptr<ISerializable>::Share(object);
}

void ProjectInputStream::CountValue(bool repeated, std::int64_t payloadSize)
{
    CountObject();
    ++statistics.values;
    if (repeated)
    {
        ++statistics.repeatedValues;
        statistics.repeatedValuesSize += recordHeadSize + payloadSize;
    }
}

void ProjectInputStream::CountObject()
{
    if (++objects > objectLimit)
    {
        throw StreamBase::Exception{3, TEXT("Too many objects in project")};
    }
}

ProjectInputStream::Record::Record(SerializingInputStream & serializingStream, ISerializable const & referable)
    : Record(dynamic_cast<ProjectInputStream &>(serializingStream), &referable)
{
}

ProjectInputStream::Record::Record(SerializingInputStream & serializingStream)
    : Record(dynamic_cast<ProjectInputStream &>(serializingStream), nullptr)
{
}

ProjectInputStream::Record::Record(ProjectInputStream & projectStream, ISerializable const * referable)
    : stream(projectStream), object(referable), outer(projectStream.innermost), start(projectStream.Position())
{
    if (stream.depth == maxDepth)
    {
        throw StreamBase::Exception{3, TEXT("Objects nested too deeply in project")};
    }
    if (object)
    {
        stream.begun[object] = Begun{stream.records, 0};
    }
    ++stream.records;
    ++stream.depth;
    stream.innermost = this;
}

ProjectInputStream::Record::~Record()
{
    std::int64_t const size = recordHeadSize + stream.Position() - start;
    if (object)
    {
        stream.begun[object].size = size - nested;
    }
    if (outer)
    {
        outer->nested += size;
    }
    --stream.depth;
    stream.innermost = outer;
}

} // namespace Storyboard
