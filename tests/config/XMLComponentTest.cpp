// Where the component that reads XML is not all there.

#include <kvcore/config/XMLParser.h>

#include <string>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

#include <support/ComApartment.h>

namespace
{

constexpr GUID documentClass = {0x88D969C0, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};
constexpr GUID schemaCacheClass = {0x88D969C2, 0xF192, 0x11D4, {0xA6, 0x5F, 0x00, 0x40, 0x96, 0x32, 0x51, 0xE5}};

/// A class object in place of the system's, which makes nothing. It lives on the stack, and is not counted.
class Refusal final : public IClassFactory
{
public:
    explicit Refusal(GUID const & replaced)
    {
        EXPECT_EQ(CoRegisterClassObject(replaced, this, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration), S_OK);
    }
    ~Refusal()
    {
        EXPECT_EQ(CoRevokeClassObject(registration), S_OK);
    }
    Refusal(Refusal const &) = delete;
    Refusal & operator=(Refusal const &) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        bool const isOurs = iid == IID_IUnknown || iid == IID_IClassFactory;
        *object = isOurs ? this : nullptr;
        return isOurs ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        return 1;
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        return 1;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown *, REFIID, void ** object) override
    {
        *object = nullptr;
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override
    {
        return S_OK;
    }

private:
    DWORD registration = 0;
};

template <typename Action>
void ExpectFailure(int code, WCHAR const * text, Action action)
{
    try
    {
        action();
        ADD_FAILURE() << "no exception";
    }
    catch (XMLParser::Exception const & failure)
    {
        EXPECT_EQ(failure.code, code);
        EXPECT_EQ(failure.message, text);
    }
}

class XMLComponents : public ::testing::Test
{
protected:
    kv::test::ComApartment com;
};

TEST_F(XMLComponents, WithoutDocumentsNothingIsRead)
{
    Refusal const refusal(documentClass);
    ExpectFailure(1, TEXT("MSXML4 parser not installed"), [] { XMLParser::ParseData("<a/>", -1); });
}

TEST_F(XMLComponents, WithoutASchemaCacheNothingIsValidated)
{
    XMLDocument document = XMLParser::ParseData("<a/>", -1);
    Refusal const refusal(schemaCacheClass);
    ExpectFailure(
        0, TEXT("MSXML4: No XMLSchemaCache40"),
        [&]
        {
            document.ValidateSchema(
                "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'><xs:element name='a'/></xs:schema>", -1);
        });
}

} // namespace
