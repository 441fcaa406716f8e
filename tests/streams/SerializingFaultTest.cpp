#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/Serializing.h>
#include <support/SerializingObjects.h>
#include <support/StackOfSize.h>
#include <support/StreamFailure.h>
#include <support/TestStreams.h>

// Streams that fail under the serializing streams, bytes that were cut or changed, and graphs deeper than the stack.

namespace
{

using kv::test::FailingOutputStream;
using kv::test::FailureOf;
using kv::test::InHex;
using kv::test::RecordingInputStream;
using kv::test::RegisterSerialObjects;
using kv::test::RunOnStackOf;
using kv::test::StreamBytes;
using kv::test::testFailure;

class SerializingFault : public testing::Test
{
protected:
    void SetUp() override
    {
        RegisterSerialObjects(factory);
    }
    void TearDown() override
    {
        EXPECT_EQ(CountedObject::alive, 0);
    }

    ObjectFactory factory;
};

/// A graph with every kind of record: new and repeated references, a circle, null, new and repeated values.
SerialNode * NewGraph()
{
    auto * const root = new SerialNode(1);
    SerialNode * const left = root->Add(2);
    SerialNode * const right = root->Add(1);
    left->LinkTo(nullptr);
    SerialNode * const deep = left->Add(3);
    deep->LinkTo(root);
    deep->LinkTo(right->Add(2));
    right->LinkTo(left);
    right->LinkTo(right);
    return root;
}

void WriteGraph(ObjectFactory const & factory, OutputStream & target, SerialNode const & root)
{
    SerializingOutputStream stream(factory, target);
    stream.WriteRef(&root);
    stream.WriteRef(&root);
}

std::string BytesOf(ObjectFactory const & factory, SerialNode const & root)
{
    MemoryOutputStream memory;
    WriteGraph(factory, memory, root);
    return memory.GetContent();
}

std::string GraphBytes(ObjectFactory const & factory)
{
    SerialNode * const root = NewGraph();
    std::string const bytes = BytesOf(factory, *root);
    root->Release();
    return bytes;
}

/// Reads what WriteGraph wrote and returns what that graph writes again, "" for null.
std::string ReadAndWriteAgain(ObjectFactory const & factory, InputStream & source)
{
    SerializingInputStream stream(factory, source);
    bool owned = false;
    ISerializable * const object = stream.ReadRef(owned);
    struct Release
    {
        ~Release()
        {
            if (owned)
            {
                object->Release();
            }
        }
        ISerializable * object;
        bool owned;
    } const release{object, owned};
    bool again = false;
    ISerializable * const same = stream.ReadRef(again);
    if (again)
    {
        same->Release();
        throw StreamBase::Exception{3, TEXT("The second reference is of another object")};
    }
    auto * const root = dynamic_cast<SerialNode *>(object);
    if (object == nullptr || same != object)
    {
        return "";
    }
    if (root == nullptr)
    {
        throw StreamBase::Exception{3, TEXT("Unexpected object in stream")};
    }
    return BytesOf(factory, *root);
}

TEST_F(SerializingFault, GraphComesBackAsItWas)
{
    std::string const bytes = GraphBytes(factory);
    MemoryInputStream source(bytes);
    EXPECT_EQ(InHex(ReadAndWriteAgain(factory, source)), InHex(bytes));
}

TEST_F(SerializingFault, FailureOfAnyWritePassesUnchangedAndLeaksNothing)
{
    std::string const bytes = GraphBytes(factory);
    SerialNode * const root = NewGraph();
    int const alive = CountedObject::alive;
    int failing = 1;
    for (;; ++failing)
    {
        FailingOutputStream target(failing);
        std::string const failure = FailureOf([&] { WriteGraph(factory, target, *root); });
        EXPECT_EQ(CountedObject::alive, alive);
        if (target.failures == 0)
        {
            EXPECT_EQ(failure, "none");
            break;
        }
        EXPECT_EQ(failure, testFailure);
        EXPECT_EQ(target.failures, 1);
        // Up to the failure everything went out, once, and nothing after it.
        EXPECT_EQ(InHex(target.Content()), InHex(bytes.substr(0, target.Content().size())));
        EXPECT_EQ(target.calls, failing);
    }
    EXPECT_GT(failing, 20);
    root->Release();
}

TEST_F(SerializingFault, NumbersTakenBeforeAFailureStayTaken)
{
    FailingOutputStream target(1);
    SerializingOutputStream stream(factory, target);
    SerialItem lost(1);
    SerialItem found(2);
    EXPECT_EQ(FailureOf([&] { stream.Write(lost); }), testFailure);
    stream.WriteRef(&found);
    int const item = factory.GetClassID("SerialItem");
    EXPECT_EQ(InHex(target.Content()), InHex(StreamBytes().Reference(1).Record(item, 1).Short(2)));
    // The pointer is known from the moment on when its reference was begun, also if its record failed.
    target.failAt = target.calls + 1;
    EXPECT_EQ(FailureOf([&] { stream.WriteRef(&lost); }), testFailure);
    target.writes.clear();
    stream.WriteRef(&lost);
    EXPECT_EQ(InHex(target.Content()), InHex(StreamBytes().Reference(4)));
}

TEST_F(SerializingFault, FailureOfAnyReadPassesUnchangedAndLeaksNothing)
{
    std::string const bytes = GraphBytes(factory);
    int failing = 1;
    for (;; ++failing)
    {
        RecordingInputStream source(bytes, failing);
        std::string const failure = FailureOf([&] { ReadAndWriteAgain(factory, source); });
        EXPECT_EQ(CountedObject::alive, 0);
        if (source.failures == 0)
        {
            EXPECT_EQ(failure, "none");
            break;
        }
        EXPECT_EQ(failure, testFailure);
        EXPECT_EQ(static_cast<int>(source.reads.size()), failing);
    }
    EXPECT_GT(failing, 20);
}

TEST_F(SerializingFault, BytesCutAnywhereRunOut)
{
    std::string const bytes = GraphBytes(factory);
    for (std::size_t size = 0; size < bytes.size(); ++size)
    {
        std::string const cut = bytes.substr(0, size);
        MemoryInputStream source(cut);
        EXPECT_EQ(FailureOf([&] { ReadAndWriteAgain(factory, source); }), "5: Memory block too short") << size;
        EXPECT_EQ(CountedObject::alive, 0);
    }
}

/// The documented failures that changed bytes can end in.
bool IsDocumented(std::string const & failure)
{
    for (char const * const text :
         {"5: Memory block too short", "3: Unknown command in stream", "3: Reference to unknown object in stream",
          "3: Wrong type of object in stream", "3: Unexpected object in stream", "6: Object version too high",
          "3: Next stream object is not a reference", "3: Reference to non-existing object",
          "3: The second reference is of another object"})
    {
        if (failure == text)
        {
            return true;
        }
    }
    return false;
}

TEST_F(SerializingFault, ChangedBytesEndInADocumentedFailureOrAreTakenAtTheirWord)
{
    std::string const bytes = GraphBytes(factory);
    int read = 0;
    int refused = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        for (int const change : {1, 2, 4, 8, 16, 32, 64, 128, 255})
        {
            std::string changed = bytes;
            changed[i] = static_cast<char>(changed[i] ^ change);
            MemoryInputStream source(changed);
            std::string again;
            std::string const failure = FailureOf([&] { again = ReadAndWriteAgain(factory, source); });
            EXPECT_EQ(CountedObject::alive, 0);
            EXPECT_TRUE(failure == "none" || IsDocumented(failure)) << i << ' ' << change << ' ' << failure;
            if (failure != "none")
            {
                ++refused;
                continue;
            }
            ++read;
            // What was read is what the bytes say: a graph that writes the same bytes, or its own form of them, which
            // reads and writes as itself.
            if (!again.empty() && again != changed)
            {
                MemoryInputStream second(again);
                EXPECT_EQ(InHex(ReadAndWriteAgain(factory, second)), InHex(again)) << i << ' ' << change;
            }
        }
    }
    EXPECT_GT(read, 0);
    EXPECT_GT(refused, 0);
}

/// A chain of `length` nodes, each owned by the one before. Released from its end, not to go as deep as it is long.
class Chain
{
public:
    explicit Chain(int length)
    {
        nodes.push_back(new SerialNode(0));
        for (int i = 1; i < length; ++i)
        {
            nodes.push_back(nodes.back()->Add(i % 3));
        }
    }
    Chain(Chain const &) = delete;
    Chain & operator=(Chain const &) = delete;
    ~Chain()
    {
        Dismantle(nodes.front());
    }

    SerialNode const & First() const
    {
        return *nodes.front();
    }

    static int Dismantle(SerialNode * node)
    {
        int length = 0;
        while (node != nullptr)
        {
            SerialNode * const next = node->links.empty() ? nullptr : node->links[0].node;
            node->links.clear();
            node->Release();
            node = next;
            ++length;
        }
        return length;
    }

private:
    std::vector<SerialNode *> nodes;
};

std::size_t const mebibyte = 1024 * 1024;

// Sanitizers put guards around the variables of each frame, which then take several times the room.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
std::size_t const mainStack = 64 * mebibyte;
#else
std::size_t const mainStack = 8 * mebibyte;
#endif

TEST_F(SerializingFault, TenThousandNodesBehindEachOtherFitIntoAMainThreadsStack)
{
    RunOnStackOf(
        mainStack,
        [this]
        {
            Chain const chain(10000);
            std::string const bytes = BytesOf(factory, chain.First());
            MemoryInputStream source(bytes);
            SerializingInputStream stream(factory, source);
            auto * const first = dynamic_cast<SerialNode *>(stream.ReadRef());
            ASSERT_NE(first, nullptr);
            EXPECT_EQ(stream.ReadRef(), first);
            EXPECT_EQ(Chain::Dismantle(first), 10000);
        });
}

/// References in references, without an end.
std::string EndlessReferences(ObjectFactory const & factory, int depth)
{
    int const node = factory.GetClassID("SerialNode");
    int const color = factory.GetClassID("SerialColor");
    StreamBytes bytes;
    unsigned int number = 0;
    for (int i = 0; i < depth; ++i)
    {
        bytes.Reference(number).Record(node, 3);
        if (i == 0)
        {
            bytes.Record(color, 1).Int(0);
        }
        else
        {
            bytes.Repeat(2);
        }
        bytes.Byte(1);
        number += 3;
    }
    return bytes;
}

TEST_F(SerializingFault, ReaderRefusesBytesNestedDeeperThanItsStack)
{
    std::string const bytes = EndlessReferences(factory, 300000);
    for (std::size_t const stack : {mebibyte / 4, mebibyte, 8 * mebibyte})
    {
        RunOnStackOf(
            stack,
            [&]
            {
                MemoryInputStream source(bytes);
                SerializingInputStream stream(factory, source);
                EXPECT_EQ(FailureOf([&] { stream.ReadRef(); }), "3: Objects nested too deep in stream");
            });
        EXPECT_EQ(CountedObject::alive, 0);
    }
}

// On the smallest stacks that the system gives, the sanitizers' guards alone would fill the room.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
std::size_t const smallStacks[] = {64 * 1024, 96 * 1024, 128 * 1024};
#else
std::size_t const smallStacks[] = {16 * 1024, 20 * 1024, 32 * 1024, 48 * 1024, 64 * 1024, 96 * 1024, 128 * 1024};
#endif

/// An item in all ways to an object of depth one. Nothing of the tests' own, which takes more room than that.
bool MovesAnItem(ObjectFactory const & factory)
{
    try
    {
        MemoryOutputStream memory;
        SerializingOutputStream output(factory, memory);
        SerialItem const item(7);
        output.Write(item);
        output.Write(item);
        output.WriteRef(&item);
        std::string const bytes = memory.GetContent();
        MemoryInputStream source(bytes);
        SerializingInputStream input(factory, source);
        SerialItem read;
        input.Read(read);
        ISerializable * const created = input.Create();
        ISerializable * const referred = input.ReadRef();
        created->Release();
        referred->Release();
        return read.number == 7;
    }
    catch (StreamBase::Exception const &)
    {
        return false;
    }
}

TEST_F(SerializingFault, ObjectsOfDepthOneFitIntoSmallStacks)
{
    for (std::size_t const stack : smallStacks)
    {
        bool moved = false;
        RunOnStackOf(stack, [&] { moved = MovesAnItem(factory); });
        EXPECT_TRUE(moved) << stack;
    }
}

/// The code of the failure of reading these bytes, or 0.
int CodeOfReading(ObjectFactory const & factory, std::string const & bytes)
{
    MemoryInputStream source(bytes);
    SerializingInputStream stream(factory, source);
    try
    {
        stream.ReadRef();
        return 0;
    }
    catch (StreamBase::Exception const & failure)
    {
        return failure.code;
    }
}

TEST_F(SerializingFault, ReaderRefusesDeepBytesOnSmallStacks)
{
    // Deep enough for the least stack that a system gives to a thread, however little is asked for.
    std::string const bytes = EndlessReferences(factory, 100'000);
    for (std::size_t const stack : smallStacks)
    {
        int code = 0;
        RunOnStackOf(stack, [&] { code = CodeOfReading(factory, bytes); });
        EXPECT_EQ(code, 3) << stack;
    }
}

/// Holds itself by value.
class Endless : public SerialItem
{
public:
    void Write(SerializingOutputStream & stream) const override
    {
        stream.Write(*this);
    }
};

TEST_F(SerializingFault, WriterRefusesGraphsNestedDeeperThanItsStack)
{
    RunOnStackOf(
        mebibyte,
        [this]
        {
            Chain const chain(50000);
            MemoryOutputStream memory;
            SerializingOutputStream stream(factory, memory);
            EXPECT_EQ(FailureOf([&] { stream.Write(chain.First()); }), "3: Objects nested too deep in stream");
            EXPECT_EQ(FailureOf([&] { stream.Write(Endless()); }), "3: Objects nested too deep in stream");
            // No failed state: what is less deep goes out.
            EXPECT_EQ(FailureOf([&] { stream.Write(SerialItem(1)); }), "none");
        });
}

} // namespace
