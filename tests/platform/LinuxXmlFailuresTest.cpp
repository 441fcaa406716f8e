#ifndef _WIN32 // The slots that this platform's interfaces hold free have other forms elsewhere.

#    include <string>

#    include <gtest/gtest.h>

#    include <kvcore/config/XMLParser.h>
#    include <kvcore/platform/xmldom.h>

#    include <support/ComApartment.h>
#    include <support/XmlFailure.h>

namespace
{

/// A node of another component, whose calls all fail alike. It belongs to the test, whatever its references.
class FailingNode final : public IXMLDOMNode
{
public:
    explicit FailingNode(DWORD failure) : result(static_cast<HRESULT>(failure)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void ** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return 2;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return 1;
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR *, UINT, LCID, DISPID *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS *, VARIANT *, EXCEPINFO *, UINT *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_nodeName(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_nodeValue(VARIANT *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_nodeType(DOMNodeType *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_parentNode(IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_childNodes(IXMLDOMNodeList **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_firstChild(IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_lastChild(IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_previousSibling(IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_nextSibling(IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE hasChildNodes(VARIANT_BOOL *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_ownerDocument(IXMLDOMDocument **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_nodeTypeString(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_text(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_xml(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE transformNode(IXMLDOMNode *, BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE selectNodes(BSTR, IXMLDOMNodeList **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE selectSingleNode(BSTR, IXMLDOMNode **) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_parsed(VARIANT_BOOL *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_namespaceURI(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_prefix(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE get_baseName(BSTR *) override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE transformNodeToObject(IXMLDOMNode *, VARIANT) override
    {
        return result;
    }

protected:
    HRESULT STDMETHODCALLTYPE slot_put_nodeValue() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_get_attributes() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_insertBefore() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_replaceChild() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_removeChild() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_appendChild() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_cloneNode() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_put_text() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_get_specified() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_get_definition() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_get_nodeTypedValue() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_put_nodeTypedValue() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_get_dataType() override
    {
        return result;
    }
    HRESULT STDMETHODCALLTYPE slot_put_dataType() override
    {
        return result;
    }

private:
    HRESULT const result;
};

} // namespace

TEST(LinuxXmlFailures, ResultsWithoutATextAreToldByTheirNumbers)
{
    struct
    {
        DWORD result;
        char const * message;
    } const rows[] = {
        {0x80040200, "Unknown error 0x80040200"}, {0x80040201, "IDispatch error #1"},
        {0x80048123, "IDispatch error #32547"},   {0x8004FFFF, "IDispatch error #65023"},
        {0x80050000, "Unknown error 0x80050000"}, {0xA000ABCD, "Unknown error 0xA000ABCD"},
    };
    for (auto const & row : rows)
    {
        FailingNode node(row.result);
        std::string const expected = std::string("0: Unexpected COM error.\nMessage: ") + row.message + '\n';
        EXPECT_EQ(kv::test::XmlFailureOf([&] { XMLNode(&node).GetName(); }), expected);
        EXPECT_EQ(kv::test::XmlFailureOf([&] { XMLNode(&node).GetType(); }), expected);
        EXPECT_EQ(kv::test::XmlFailureOf([&] { XMLNode(&node).GetParentNode(); }), expected);
        EXPECT_EQ(kv::test::XmlFailureOf([&] { XMLNode(&node).GetChildNodes("a", false); }), expected);
        EXPECT_EQ(kv::test::XmlFailureOf([&] { XMLNode(&node).GetChildNode("a", false); }), expected);
    }
}

TEST(LinuxXmlFailures, OneThatIsNoElementHasNoAttributes)
{
    FailingNode node(0x80040201);
    EXPECT_FALSE(XMLNode(&node).HasAttribute("a"));
}

TEST(LinuxXmlFailures, WhatTheComponentSaysStandsBeforeTheSystemsText)
{
    kv::test::ComApartment const com;
    XMLDocument const document = XMLParser::ParseData("<a/>", -1);
    std::string const failure = kv::test::XmlFailureOf([&] { document.GetChildNodes("1 + 1", false); });
    std::string const start = "0: Unexpected COM error.\nDescription: The path selects no nodes.\nMessage: Unspecified";
    EXPECT_EQ(failure.substr(0, start.size()), start);
    EXPECT_EQ(failure.find('\n', start.size()), failure.size() - 1);
}

#endif
