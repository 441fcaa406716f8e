// Goes through what only an installed, linked library can prove: exported classes, exceptions and run-time types that
// cross its boundary, and an object graph of classes that it has never seen.

#include <cstdio>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/core/String.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Serializing.h>

#if defined(min) || defined(max)
#    error "the public headers leak the system's macros"
#endif

namespace
{

int failures = 0;

void Check(bool holds, char const * what)
{
    if (!holds)
    {
        std::printf("consumer: %s failed\n", what);
        ++failures;
    }
}

class Note : public KVUnknown, public ISerializable
{
public:
    void Read(SerializingInputStream & stream, short) override
    {
        stream >> text;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << text;
    }
    short GetVersion() const override
    {
        return 1;
    }

    String text;
};

void ExceptionsCrossTheBoundary()
{
    MemoryInputStream empty("", 0);
    int code = 0;
    try
    {
        int value = 0;
        empty >> value;
    }
    catch (StreamBase::Exception const & failure)
    {
        code = failure.code;
    }
    Check(code == 5, "the failure of an exhausted stream");
}

void GraphsRoundTrip()
{
    ObjectFactory factory;
    RegisterType<Note>(factory);

    Note note;
    note.text = String(TEXT("first cut"));
    MemoryOutputStream memory;
    {
        CompressingStream compressed(memory, -1);
        SerializingOutputStream out(factory, compressed);
        out.WriteRef(&note);
    }
    std::string const bytes = memory.GetContent();

    MemoryInputStream source(bytes);
    DecompressingStream decompressed(source);
    SerializingInputStream in(factory, decompressed);
    ISerializable * const object = in.ReadRef();
    auto const * const copy = dynamic_cast<Note *>(object);
    Check(copy != nullptr && copy->text == note.text, "the round trip of an object");
    if (object != nullptr)
    {
        object->Release();
    }
}

} // namespace

int main()
{
    Check(String::FromUtf8("caf\xC3\xA9").Utf8() == "caf\xC3\xA9", "the round trip of UTF-8");
    Check(String::FromFormat(TEXT("%s (0x%08x)"), TEXT("ok"), 255u) == TEXT("ok (0x000000ff)"), "formatting");
    ExceptionsCrossTheBoundary();
    GraphsRoundTrip();
    if (failures == 0)
    {
        std::printf("consumer: the installed library works\n");
    }
    return failures == 0 ? 0 : 1;
}
