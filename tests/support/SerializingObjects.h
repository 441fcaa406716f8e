#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kvcore/streams/ClassMethods.h>
#include <kvcore/streams/MemoryStreams.h>

// Classes for the tests of the serializing streams. They stand in the global namespace, as the classes of clients do.

/// Counts its objects, and gives away its reference count.
class CountedObject : public KVUnknown
{
public:
    CountedObject()
    {
        ++alive;
    }
    CountedObject(CountedObject const & other) : KVUnknown(other)
    {
        ++alive;
    }
    CountedObject & operator=(CountedObject const &)
    {
        return *this;
    }
    ~CountedObject() override
    {
        --alive;
    }

    ULONG Count()
    {
        AddRef();
        return Release();
    }

    static inline int alive = 0;
};

/// One number.
class SerialItem : public CountedObject, public ISerializable
{
public:
    explicit SerialItem(short newNumber = 0) : number(newNumber) {}

    void Read(SerializingInputStream & stream, short version) override
    {
        readVersion = version;
        stream >> number;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number;
    }
    short GetVersion() const override
    {
        return currentVersion;
    }

    short number;
    short readVersion = -100;
    static inline short currentVersion = 1;
};

/// An item by value, and another one behind two pointers.
class SerialPage : public CountedObject, public ISerializable
{
public:
    ~SerialPage() override
    {
        if (itemB != nullptr)
        {
            itemB->Release();
        }
    }

    void Read(SerializingInputStream & stream, short) override
    {
        stream >> number;
        stream.Read(itemA);
        itemB = dynamic_cast<SerialItem *>(stream.ReadRef());
        again = dynamic_cast<SerialItem *>(stream.ReadRef());
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << number;
        stream.Write(itemA);
        stream.WriteRef(itemB);
        stream.WriteRef(again);
    }
    short GetVersion() const override
    {
        return 2;
    }

    int number = 0;
    SerialItem itemA;
    SerialItem * itemB = nullptr; // owned
    SerialItem * again = nullptr;
};

/// A value class.
class SerialColor : public CountedObject, public ISerializable
{
public:
    explicit SerialColor(int newValue = 0) : value(newValue) {}

    bool operator==(SerialColor const & other) const
    {
        return value == other.value;
    }

    void Read(SerializingInputStream & stream, short) override
    {
        stream >> value;
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream << value;
    }
    short GetVersion() const override
    {
        return 1;
    }

    int value;
};

/// A node of any graph: a color by value and links to other nodes. A link that brought its node owns it.
class SerialNode : public CountedObject, public ISerializable
{
public:
    struct Link
    {
        SerialNode * node;
        bool owned;
    };

    explicit SerialNode(int value = 0) : color(value) {}
    ~SerialNode() override
    {
        for (Link const & link : links)
        {
            if (link.owned)
            {
                link.node->Release();
            }
        }
    }

    /// A new node that this one owns.
    SerialNode * Add(int value)
    {
        links.push_back({new SerialNode(value), true});
        return links.back().node;
    }
    void LinkTo(SerialNode * node)
    {
        links.push_back({node, false});
    }

    void Read(SerializingInputStream & stream, short newVersion) override
    {
        version = newVersion;
        stream.Read(color);
        unsigned char count;
        stream >> count;
        for (int i = 0; i < count; ++i)
        {
            ReadLink(stream);
        }
    }
    void Write(SerializingOutputStream & stream) const override
    {
        stream.Write(color);
        stream << static_cast<unsigned char>(links.size());
        for (Link const & link : links)
        {
            stream.WriteRef(link.node);
        }
    }
    short GetVersion() const override
    {
        return version;
    }

    SerialColor color;
    std::vector<Link> links;
    short version = 3;

private:
    void ReadLink(SerializingInputStream & stream)
    {
        links.reserve(links.size() + 1);
        bool owned;
        ISerializable * const object = stream.ReadRef(owned);
        auto * const node = dynamic_cast<SerialNode *>(object);
        if (node == nullptr && object != nullptr)
        {
            if (owned)
            {
                object->Release();
            }
            throw StreamBase::Exception{3, TEXT("Unexpected object in stream")};
        }
        links.push_back({node, owned});
    }
};

namespace kv::test
{

/// Registers all of them.
inline void RegisterSerialObjects(ObjectFactory & factory)
{
    ASSERT_TRUE(RegisterType<SerialItem>(factory));
    ASSERT_TRUE(RegisterType<SerialPage>(factory));
    ASSERT_TRUE(RegisterType<ValueClassMethods<SerialColor>>(factory));
    ASSERT_TRUE(RegisterType<SerialNode>(factory));
}

/// Bytes of a stream, written out: numbers of 32, 16 and 8 bits in little-endian order.
class StreamBytes
{
public:
    StreamBytes & Int(std::uint32_t value)
    {
        return Append(value, 4);
    }
    StreamBytes & Short(int value)
    {
        return Append(static_cast<std::uint32_t>(value), 2);
    }
    StreamBytes & Byte(int value)
    {
        return Append(static_cast<std::uint32_t>(value), 1);
    }
    StreamBytes & Reference(std::uint32_t index)
    {
        return Int(0).Int(0x80190311).Int(index);
    }
    StreamBytes & Repeat(std::uint32_t number)
    {
        return Int(0).Int(0x96190311).Int(number);
    }
    StreamBytes & Record(int id, int version)
    {
        return Int(static_cast<std::uint32_t>(id)).Short(version);
    }

    operator std::string const &() const
    {
        return bytes;
    }

private:
    StreamBytes & Append(std::uint32_t value, int size)
    {
        for (int i = 0; i < size; ++i)
        {
            bytes += static_cast<char>(value >> (8 * i) & 0xFF);
        }
        return *this;
    }

    std::string bytes;
};

/// Readable in a failed comparison.
inline std::string InHex(std::string const & bytes)
{
    std::string hex;
    for (unsigned char const byte : bytes)
    {
        hex += "0123456789ABCDEF"[byte >> 4];
        hex += "0123456789ABCDEF"[byte & 15];
        hex += ' ';
    }
    return hex;
}

} // namespace kv::test
