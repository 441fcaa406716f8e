#ifndef _WIN32 // What this platform's own component lets documents reach.

#    include <string>

#    include <arpa/inet.h>
#    include <fcntl.h>
#    include <netinet/in.h>
#    include <sys/socket.h>
#    include <unistd.h>

#    include <gtest/gtest.h>

#    include <kvcore/config/XMLParser.h>

#    include <support/ComApartment.h>
#    include <support/ScratchFolder.h>

namespace
{

/// A server on this machine that answers nobody, and knows whether anybody has called.
class Listener
{
public:
    Listener() : server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(server, reinterpret_cast<sockaddr *>(&address), size), 0);
        EXPECT_EQ(listen(server, 8), 0);
        EXPECT_EQ(getsockname(server, reinterpret_cast<sockaddr *>(&address), &size), 0);
        port = ntohs(address.sin_port);
    }
    Listener(Listener const &) = delete;
    Listener & operator=(Listener const &) = delete;
    ~Listener()
    {
        close(server);
    }

    std::string Url(std::string const & file) const
    {
        return "http://127.0.0.1:" + std::to_string(port) + '/' + file;
    }
    bool WasCalled() const
    {
        int const caller = accept(server, nullptr, nullptr);
        if (caller >= 0)
        {
            close(caller);
        }
        return caller >= 0;
    }
    /// So that a listener that hears nothing at all is found out.
    void Call() const
    {
        int const caller = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        EXPECT_EQ(connect(caller, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        close(caller);
    }

private:
    int const server;
    int port = 0;
};

template <typename Action>
void Try(Action action)
{
    try
    {
        action();
    }
    catch (XMLParser::Exception const & failure)
    {
        EXPECT_FALSE(failure.message.empty());
    }
}

} // namespace

TEST(LinuxXml, NothingIsFetchedOverTheNetwork)
{
    kv::test::ComApartment const com;
    Listener const listener;
    std::string const space = "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'";
    std::string const sheet = "<xsl:stylesheet version='1.0' " + space + ">";
    std::string const match = "<xsl:template match='/'><r><xsl:value-of select=\"document('" + listener.Url("x") +
        "')\"/></r></xsl:template></xsl:stylesheet>";
    std::string const schema = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
    Try([&] { XMLParser::ParseFile(String::FromUtf8(listener.Url("a.xml")).c_str()); });
    for (std::string const & text :
         {"<!DOCTYPE a SYSTEM '" + listener.Url("a.dtd") + "'><a>&e;</a>",
          "<!DOCTYPE a [<!ENTITY e SYSTEM '" + listener.Url("e") + "'>]><a>&e;</a>",
          "<!DOCTYPE a [<!ENTITY % p SYSTEM '" + listener.Url("p") + "'>%p;]><a/>",
          "<a xmlns:x='http://www.w3.org/2001/XInclude'><x:include href='" + listener.Url("i") + "'/></a>"})
    {
        Try([&] { XMLParser::ParseData(text.c_str(), -1); });
        Try([&] { XMLParser::ParseData("<a/>", -1).ValidateSchema(text.c_str(), -1); });
    }
    for (std::string const & text :
         {schema + "<xs:include schemaLocation='" + listener.Url("s") + "'/></xs:schema>",
          schema + "<xs:import namespace='u' schemaLocation='" + listener.Url("s") + "'/></xs:schema>"})
    {
        Try([&] { XMLParser::ParseData("<a/>", -1).ValidateSchema(text.c_str(), -1); });
    }
    for (std::string const & text :
         {sheet + match, sheet + "<xsl:import href='" + listener.Url("s") + "'/></xsl:stylesheet>",
          sheet + "<xsl:include href='" + listener.Url("s") + "'/></xsl:stylesheet>"})
    {
        Try([&] { XMLParser::ParseData("<a/>", -1).TransformNode(XMLParser::ParseData(text.c_str(), -1)); });
    }
    Try(
        [&]
        {
            XMLParser::ParseData(
                ("<a xsi:noNamespaceSchemaLocation='" + listener.Url("s") +
                 "' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'/>")
                    .c_str(),
                -1)
                .ValidateSchema((schema + "<xs:element name='a'/></xs:schema>").c_str(), -1);
        });
    EXPECT_FALSE(listener.WasCalled());
    listener.Call();
    EXPECT_TRUE(listener.WasCalled());
}

TEST(LinuxXml, SchemasIncludeFiles)
{
    kv::test::ComApartment const com;
    ScratchFolder const folder;
    std::string const start = "<xs:schema xmlns:xs='http://www.w3.org/2001/XMLSchema'>";
    folder.Write("part.xsd", start + "<xs:element name='n' type='xs:int'/></xs:schema>");
    std::string const schema =
        start + "<xs:include schemaLocation='" + (folder / "part.xsd").string() + "'/></xs:schema>";
    EXPECT_NO_THROW(XMLParser::ParseData("<n>1</n>", -1).ValidateSchema(schema.c_str(), -1));
    try
    {
        XMLParser::ParseData("<n>x</n>", -1).ValidateSchema(schema.c_str(), -1);
        ADD_FAILURE() << "the included part was not looked at";
    }
    catch (XMLParser::Exception const & failure)
    {
        EXPECT_EQ(failure.code, 2) << failure.message.Utf8();
    }
}

#endif
