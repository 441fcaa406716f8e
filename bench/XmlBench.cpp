// XML written and read, beside the writers of libxml2 and Qt, and beside libxml2 used directly.

#include <memory>
#include <string>
#include <vector>

#include <QtCore/QBuffer>
#include <QtCore/QXmlStreamWriter>

#include <libxml/c14n.h>
#include <libxml/parser.h>
#include <libxml/xmlwriter.h>
#include <libxml/xpath.h>

#include <kvcore/config/XMLParser.h>
#include <kvcore/config/XMLWriter.h>
#include <kvcore/platform/NativePaths.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/MemoryStreams.h>

#include "Jobs.h"
#include "ScratchFolder.h"

namespace
{

constexpr std::size_t records = 290'000;        // about 100 MB
constexpr std::size_t documentRecords = 58'000; // about 20 MB
constexpr int queries = 1000;

/// The same texts in each writer's own form.
template <typename Text>
struct Texts
{
    Text title;
    Text plain;
    Text marked;
    std::vector<Text> numbers;
};

template <typename Text, typename Make>
Texts<Text> MakeTexts(Make make)
{
    Texts<Text> texts;
    texts.title = make("The quick brown fox & the lazy dog");
    texts.plain = make("Lorem ipsum dolor sit amet, consectetur adipiscing elit, sed do eiusmod tempor incididunt ut "
                       "labore et dolore magna aliqua. Ut enim ad minim veniam, quis nostrud exercitation.");
    texts.marked = make("if (a < b && c > d) { print(\"\xC3\xA4\xE2\x82\xAC\"); }");
    for (int i = 0; i < 1000; ++i)
    {
        texts.numbers.push_back(make(std::to_string(i * 7919).c_str()));
    }
    return texts;
}

void WriteWithLibrary(std::size_t count, MemoryOutputStream & target)
{
    static Texts<String> const texts = MakeTexts<String>([](char const * text) { return String::FromUtf8(text); });
    XMLWriter writer(target, true);
    writer.WriteStartElement("catalogue");
    for (std::size_t i = 0; i < count; ++i)
    {
        writer.WriteStartElement("record").WriteAttribute("id", texts.numbers[i % 1000]);
        writer.WriteAttribute("title", texts.title);
        writer.WriteStartElement("text", false).WriteCharacters(texts.plain).WriteEndElement();
        writer.WriteStartElement("code", false).WriteCharacters(texts.marked).WriteEndElement();
        writer.WriteEmptyElement("end").WriteEndElement();
    }
    writer.WriteEndElement();
}

/// `content` gets what was written, if somebody wants it.
std::size_t WriteWithLibxml(std::size_t count, std::string * content = nullptr)
{
    static Texts<std::string> const texts = MakeTexts<std::string>([](char const * text) { return text; });
    auto const name = [](char const * text) { return reinterpret_cast<xmlChar const *>(text); };
    xmlBuffer * const buffer = xmlBufferCreate();
    xmlTextWriter * const writer = xmlNewTextWriterMemory(buffer, 0);
    xmlTextWriterSetIndent(writer, 1);
    xmlTextWriterStartDocument(writer, nullptr, nullptr, nullptr);
    xmlTextWriterStartElement(writer, name("catalogue"));
    for (std::size_t i = 0; i < count; ++i)
    {
        xmlTextWriterStartElement(writer, name("record"));
        xmlTextWriterWriteAttribute(writer, name("id"), name(texts.numbers[i % 1000].c_str()));
        xmlTextWriterWriteAttribute(writer, name("title"), name(texts.title.c_str()));
        xmlTextWriterStartElement(writer, name("text"));
        xmlTextWriterWriteString(writer, name(texts.plain.c_str()));
        xmlTextWriterEndElement(writer);
        xmlTextWriterStartElement(writer, name("code"));
        xmlTextWriterWriteString(writer, name(texts.marked.c_str()));
        xmlTextWriterEndElement(writer);
        xmlTextWriterStartElement(writer, name("end"));
        xmlTextWriterEndElement(writer);
        xmlTextWriterEndElement(writer);
    }
    xmlTextWriterEndDocument(writer);
    xmlFreeTextWriter(writer);
    std::size_t const size = static_cast<std::size_t>(xmlBufferLength(buffer));
    if (content != nullptr)
    {
        content->assign(reinterpret_cast<char const *>(xmlBufferContent(buffer)), size);
    }
    xmlBufferFree(buffer);
    return size;
}

std::size_t WriteWithQt(std::size_t count, std::string * content = nullptr)
{
    static Texts<QString> const texts = MakeTexts<QString>([](char const * text) { return QString::fromUtf8(text); });
    static QString const catalogue("catalogue"), record("record"), id("id"), title("title"), text("text"), code("code"),
        end("end");
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QXmlStreamWriter writer(&buffer);
    writer.setAutoFormatting(true);
    writer.writeStartDocument();
    writer.writeStartElement(catalogue);
    for (std::size_t i = 0; i < count; ++i)
    {
        writer.writeStartElement(record);
        writer.writeAttribute(id, texts.numbers[i % 1000]);
        writer.writeAttribute(title, texts.title);
        writer.writeTextElement(text, texts.plain);
        writer.writeTextElement(code, texts.marked);
        writer.writeEmptyElement(end);
        writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    if (content != nullptr)
    {
        *content = bytes.toStdString();
    }
    return static_cast<std::size_t>(bytes.size());
}

/// What a document says, whoever wrote it and wherever its lines break. Empty if it is none.
std::string MeaningOf(std::string const & content)
{
    xmlDoc * const document = xmlReadMemory(
        content.data(), static_cast<int>(content.size()), nullptr, nullptr, XML_PARSE_NOBLANKS | XML_PARSE_NONET);
    xmlChar * canonical = nullptr;
    int const size =
        document != nullptr ? xmlC14NDocDumpMemory(document, nullptr, XML_C14N_1_0, nullptr, 1, &canonical) : 0;
    std::string const meaning(reinterpret_cast<char const *>(canonical), size > 0 ? static_cast<std::size_t>(size) : 0);
    xmlFree(canonical);
    xmlFreeDoc(document);
    return meaning;
}

void AddWriting()
{
    std::size_t const some = 2000;
    MemoryOutputStream written;
    WriteWithLibrary(some, written);
    std::string const ours = written.GetContent();
    std::string libxml;
    std::string qt;
    WriteWithLibxml(some, &libxml);
    WriteWithQt(some, &qt);
    std::string const meaning = MeaningOf(ours);
    bench::Require(
        meaning.size() > ours.size() / 2 && meaning == MeaningOf(libxml) && meaning == MeaningOf(qt), "XmlWrite");
    std::size_t const count = bench::Scaled(records, 3000);
    std::size_t const bytes = ours.size() / some * count;
    auto const nothing = [] {};
    bench::AddOnce(
        "XmlWrite/mixed/ours", bytes, nothing,
        [count]
        {
            MemoryOutputStream target;
            WriteWithLibrary(count, target);
            benchmark::DoNotOptimize(&target);
        });
    bench::AddOnce(
        "XmlWrite/mixed/libxml2", bytes, nothing, [count] { benchmark::DoNotOptimize(WriteWithLibxml(count)); });
    bench::AddOnce("XmlWrite/mixed/Qt", bytes, nothing, [count] { benchmark::DoNotOptimize(WriteWithQt(count)); });
}

std::string Query(std::size_t count, int number)
{
    return "/catalogue/record[" + std::to_string(static_cast<std::size_t>(number) * count / queries + 1) + "]/text";
}

std::size_t ReadWithLibrary(String const & path, std::size_t count)
{
    XMLDocument const document = XMLParser::ParseFile(path.c_str());
    std::size_t size = 0;
    for (int i = 0; i < queries; ++i)
    {
        size += document.GetChildNode(Query(count, i).c_str(), true).GetText().size();
    }
    return size;
}

std::size_t ReadWithLibxml(std::string const & path, std::size_t count)
{
    xmlDoc * const document = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NOENT | XML_PARSE_NONET);
    xmlXPathContext * const context = xmlXPathNewContext(document);
    std::size_t size = 0;
    for (int i = 0; i < queries; ++i)
    {
        xmlXPathObject * const result =
            xmlXPathEval(reinterpret_cast<xmlChar const *>(Query(count, i).c_str()), context);
        xmlChar * const text = xmlNodeGetContent(result->nodesetval->nodeTab[0]);
        size += static_cast<std::size_t>(xmlStrlen(text));
        xmlFree(text);
        xmlXPathFreeObject(result);
    }
    xmlXPathFreeContext(context);
    xmlFreeDoc(document);
    return size;
}

/// A document on the disk, by both its names.
struct Catalogue
{
    std::size_t count;
    std::string native;
    String path;
    std::size_t bytes = 0;

    Catalogue(char const * name, std::size_t recordCount)
        : count(recordCount),
          native((bench::ScratchFolder::Path() / name).native()),
          path(bench::ScratchFolder::Name(name))
    {
    }
    void Write()
    {
        if (bytes == 0)
        {
            MemoryOutputStream target;
            WriteWithLibrary(count, target);
            std::string const content = target.GetContent();
            std::ofstream(native, std::ios::binary) << content;
            bytes = content.size();
        }
    }
};

void AddReading()
{
    HRESULT const com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Catalogue small("small.xml", 1500);
    small.Write();
    std::size_t const size = ReadWithLibrary(small.path, small.count);
    bench::Require(
        SUCCEEDED(com) && size > small.bytes / 4 && size == ReadWithLibxml(small.native, small.count), "XmlRead");
    auto const document = std::make_shared<Catalogue>("catalogue.xml", bench::Scaled(documentRecords, 3000));
    std::size_t const bytes = small.bytes / small.count * document->count;
    auto const write = [document] { document->Write(); };
    bench::AddOnce(
        "XmlRead/file-queries/ours", bytes, write,
        [document] { benchmark::DoNotOptimize(ReadWithLibrary(document->path, document->count)); });
    bench::AddOnce(
        "XmlRead/file-queries/libxml2", bytes, write,
        [document] { benchmark::DoNotOptimize(ReadWithLibxml(document->native, document->count)); });
}

bench::Source const writing(AddWriting);
bench::Source const reading(AddReading);

} // namespace
