#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/xmldom.h>

#include <support/ComApartment.h>
#include <support/ScratchPaths.h>

using namespace kv::test;

namespace
{

CLSID const documentClass = {0x88D969C0, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
IID const document2 = {0x2933BF95, 0x7B36, 0x11D2, {0xB2, 0x0E, 0x00, 0xC0, 0x4F, 0x98, 0x3E, 0x60}};

class Text
{
public:
    Text() = default;
    explicit Text(WString const & source) : text(SysAllocStringLen(source.data(), static_cast<UINT>(source.size()))) {}
    Text(Text const &) = delete;
    Text & operator=(Text const &) = delete;
    ~Text()
    {
        SysFreeString(text);
    }
    WString Get() const
    {
        return text == nullptr ? WString() : WString(text, SysStringLen(text));
    }
    BSTR text = nullptr;
};

WString Wide(std::string const & ascii)
{
    return WString(ascii.begin(), ascii.end());
}

class XmlDocuments : public ::testing::Test
{
protected:
    XmlDocuments()
    {
        void * object = nullptr;
        EXPECT_EQ(CoCreateInstance(documentClass, nullptr, CLSCTX_INPROC_SERVER, document2, &object), S_OK);
        document = static_cast<IXMLDOMDocument2 *>(object);
        EXPECT_EQ(document->put_async(VARIANT_FALSE), S_OK);
        EXPECT_EQ(document->put_validateOnParse(VARIANT_FALSE), S_OK);
        EXPECT_EQ(document->put_resolveExternals(VARIANT_FALSE), S_OK);
        EXPECT_EQ(document->put_preserveWhiteSpace(VARIANT_TRUE), S_OK);
    }
    ~XmlDocuments() override
    {
        document->Release();
    }

    bool Load(std::string const & text)
    {
        VARIANT_BOOL loaded = VARIANT_FALSE;
        document->loadXML(Text(Wide(text)).text, &loaded);
        return loaded == VARIANT_TRUE;
    }
    WString ContentOf(char const * path)
    {
        IXMLDOMNode * node = nullptr;
        if (document->selectSingleNode(Text(Wide(path)).text, &node) != S_OK)
        {
            return TEXT("(none)");
        }
        Text text;
        EXPECT_EQ(node->get_text(&text.text), S_OK);
        node->Release();
        return text.Get();
    }
    HRESULT SetProperty(char const * name, char const * value)
    {
        Text const text(Wide(value));
        VARIANT property;
        VariantInit(&property);
        property.vt = VT_BSTR;
        property.bstrVal = text.text;
        return document->setProperty(Text(Wide(name)).text, property);
    }

    ComApartment com;
    IXMLDOMDocument2 * document = nullptr;
};

/// The place of a virtual function in its table, as this compiler's pointers to members hold it.
template <typename Member>
std::ptrdiff_t SlotOf(Member member)
{
    std::ptrdiff_t words[sizeof(Member) / sizeof(std::ptrdiff_t)];
    static_assert(sizeof words == sizeof member);
    std::memcpy(words, &member, sizeof member);
    return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void *));
}

} // namespace

TEST(XmlInterfaces, FunctionsHaveTheirPublishedPlaces)
{
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_nodeName), 7);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_nodeType), 10);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_parentNode), 11);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_ownerDocument), 23);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_text), 26);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::get_xml), 34);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::selectNodes), 36);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::selectSingleNode), 37);
    EXPECT_EQ(SlotOf(&IXMLDOMNode::transformNodeToObject), 42);
    EXPECT_EQ(SlotOf(&IXMLDOMElement::getAttribute), 44);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::get_documentElement), 45);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::load), 58);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::get_parseError), 60);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::put_async), 63);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::loadXML), 65);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::put_validateOnParse), 68);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::put_resolveExternals), 70);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument::put_preserveWhiteSpace), 72);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument2::putref_schemas), 78);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument2::validate), 79);
    EXPECT_EQ(SlotOf(&IXMLDOMDocument2::setProperty), 80);
    EXPECT_EQ(SlotOf(&IXMLDOMNodeList::nextNode), 9);
    EXPECT_EQ(SlotOf(&IXMLDOMParseError::get_errorCode), 7);
    EXPECT_EQ(SlotOf(&IXMLDOMParseError::get_url), 8);
    EXPECT_EQ(SlotOf(&IXMLDOMParseError::get_reason), 9);
    EXPECT_EQ(SlotOf(&IXMLDOMParseError::get_line), 11);
    EXPECT_EQ(SlotOf(&IXMLDOMParseError::get_linepos), 12);
    EXPECT_EQ(SlotOf(&IXMLDOMSchemaCollection::add), 7);
}

TEST_F(XmlDocuments, PrefixesOfPathsAreThoseOfTheProperty)
{
    ASSERT_TRUE(Load("<a xmlns='u'><p:b xmlns:p='v'>t</p:b></a>"));
    EXPECT_EQ(ContentOf("//b"), TEXT("(none)"));
    EXPECT_EQ(SetProperty("SelectionLanguage", "XPath"), S_OK);
    EXPECT_EQ(SetProperty("SelectionNamespaces", "xmlns:x='u' xmlns:y='v'"), S_OK);
    EXPECT_EQ(ContentOf("/x:a/y:b"), TEXT("t"));
}

TEST_F(XmlDocuments, ExternalEntitiesAreNotRead)
{
    ScratchPaths const scratch;
    scratch.Make("secret.txt", "secret");
    std::string const path = (scratch.Path() / "secret.txt").generic_string();
    if (Load("<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///" + path + "'><!ENTITY i 'inner'>]><a>&e;&i;</a>"))
    {
        EXPECT_EQ(ContentOf("/a"), TEXT("inner"));
    }
}

#ifndef _WIN32 // the bounds are this platform's own component's
TEST_F(XmlDocuments, ExternalEntitiesAreReadFromFilesIfAskedFor)
{
    ScratchPaths const scratch;
    scratch.Make("part.txt", "part");
    EXPECT_EQ(document->put_resolveExternals(VARIANT_TRUE), S_OK);
    std::string const path = (scratch.Path() / "part.txt").string();
    ASSERT_TRUE(
        Load("<!DOCTYPE a [<!ENTITY e SYSTEM '" + path + "'><!ENTITY n SYSTEM 'http://localhost/x'>]><a>&e;&n;</a>"));
    EXPECT_EQ(ContentOf("/a"), TEXT("part"));
}

TEST_F(XmlDocuments, EntitiesThatBlowUpAreAnError)
{
    std::string text = "<!DOCTYPE a [<!ENTITY e0 'xxxxxxxxxxxxxxxxxxxx'>";
    for (int i = 1; i < 12; ++i)
    {
        text += "<!ENTITY e" + std::to_string(i) + " '";
        for (int j = 0; j < 10; ++j)
        {
            text += "&e" + std::to_string(i - 1) + ";";
        }
        text += "'>";
    }
    EXPECT_FALSE(Load(text + "]><a>&e11;</a>"));
    EXPECT_FALSE(Load(text + "]><a x='&e11;'/>"));
    EXPECT_FALSE(Load("<!DOCTYPE a [<!ENTITY e '&f;'><!ENTITY f '&e;'>]><a>&e;</a>"));
}

TEST_F(XmlDocuments, DepthIsBounded)
{
    auto const nested = [](int depth)
    {
        std::string text;
        for (int i = 0; i < depth; ++i)
        {
            text += "<a>";
        }
        for (int i = 0; i < depth; ++i)
        {
            text += "</a>";
        }
        return text;
    };
    EXPECT_TRUE(Load(nested(255)));
    EXPECT_FALSE(Load(nested(100000)));
}

TEST_F(XmlDocuments, NetworkAddressesAreNotLoaded)
{
    Text const address(TEXT("http://localhost/a.xml"));
    VARIANT source;
    VariantInit(&source);
    source.vt = VT_BSTR;
    source.bstrVal = address.text;
    VARIANT_BOOL loaded = VARIANT_TRUE;
    EXPECT_EQ(document->load(source, &loaded), S_FALSE);
    EXPECT_EQ(loaded, VARIANT_FALSE);
}

TEST_F(XmlDocuments, WhatIsTakenOutOfADocumentKeepsItsNamespaces)
{
    ASSERT_TRUE(Load("<p:a xmlns:p='u'><p:b/></p:a>"));
    EXPECT_EQ(SetProperty("SelectionNamespaces", "xmlns:p='u'"), S_OK);
    IXMLDOMNode * node = nullptr;
    ASSERT_EQ(document->selectSingleNode(Text(TEXT("//p:b")).text, &node), S_OK);
    Text xml;
    EXPECT_EQ(node->get_xml(&xml.text), S_OK);
    node->Release();
    EXPECT_EQ(xml.Get(), TEXT("<p:b xmlns:p=\"u\"/>"));
}
#endif
