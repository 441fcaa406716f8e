#include <gtest/gtest.h>

#include <string>

#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/streams/Serializing.h>
#include <support/SerializingObjects.h>

namespace
{

using kv::test::InHex;
using kv::test::RegisterSerialObjects;
using kv::test::StreamBytes;

/// Gives the classes of the worked example their identifiers.
class ExampleFactory : public ObjectFactory
{
public:
    using ObjectFactory::GetClassID;
    int GetClassID(char const * name) const override
    {
        return name == std::string("SerialPage") ? 0x0A1F : name == std::string("SerialItem") ? 0x0A23 : 0;
    }
};

TEST(SerializingFormat, PageWithItemsTakesFiftyBytes)
{
    char const golden[] = "\x1F\x0A\x00\x00"                                  // the page's class
                          "\x02\x00"                                          // its version
                          "\x07\x00\x00\x00"                                  // its number
                          "\x23\x0A\x00\x00"                                  // item A's class
                          "\x01\x00"                                          // its version
                          "\x01\x00"                                          // its number
                          "\x00\x00\x00\x00\x11\x03\x19\x80\x02\x00\x00\x00"  // reference 2: a new object
                          "\x23\x0A\x00\x00\x01\x00\x02\x00"                  // item B, object 3
                          "\x00\x00\x00\x00\x11\x03\x19\x80\x03\x00\x00\x00"; // object 3 again
    ASSERT_EQ(sizeof(golden) - 1, 50u);
    ExampleFactory factory;
    ASSERT_TRUE(RegisterType<SerialPage>(factory));
    ASSERT_TRUE(RegisterType<SerialItem>(factory));

    std::string bytes;
    {
        SerialPage page;
        page.number = 7;
        page.itemA.number = 1;
        page.itemB = page.again = new SerialItem(2);
        MemoryOutputStream memory;
        SerializingOutputStream(factory, memory).Write(page);
        bytes = memory.GetContent();
    }
    EXPECT_EQ(InHex(bytes), InHex(std::string(golden, 50)));

    MemoryInputStream memory(bytes);
    SerializingInputStream stream(factory, memory);
    auto * const page = dynamic_cast<SerialPage *>(stream.Create());
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->number, 7);
    EXPECT_EQ(page->itemA.number, 1);
    ASSERT_NE(page->itemB, nullptr);
    EXPECT_EQ(page->itemB->number, 2);
    EXPECT_EQ(page->again, page->itemB);
    page->Release();
}

} // namespace
