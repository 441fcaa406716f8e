#include <kvcore/examples/storyboard/Description.h>

#include <limits>
#include <map>
#include <set>

#include <kvcore/config/XMLParser.h>
#include <kvcore/config/XMLWriter.h>
#include <kvcore/examples/storyboard/DescriptionTexts.h>
#include <kvcore/examples/storyboard/resources/DescriptionIds.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/MemoryStreams.h>
#include <kvcore/tools/support/ComUse.h>

namespace Storyboard
{

namespace
{

// In the order of their numbers.
constexpr char const * formatKinds[] = {"other", "picture", "film", "sound", "text"};
constexpr char const * transitionKinds[] = {"cut", "fade"};
constexpr char const * binKinds[] = {"folder", "collection"};
static_assert(std::size(formatKinds) == Format::kinds && std::size(transitionKinds) == Transition::kinds);
static_assert(std::size(binKinds) == Bin::kinds);

template <std::size_t count, typename Kind>
String KindText(char const * const (&names)[count], Kind kind)
{
    return String::FromUtf8(names[static_cast<std::size_t>(kind)]);
}

/// Objects in the order of their first mention, and their numbers from 1 on.
template <typename T>
class Numbered
{
public:
    /// Whether the object is new.
    bool Add(T const * object)
    {
        bool const isNew = numbers.emplace(object, numbers.size() + 1).second;
        if (isNew)
        {
            objects.push_back(object);
        }
        return isNew;
    }
    String Id(char kind, T const * object) const
    {
        return String::FromUtf8(kind + std::to_string(numbers.at(object)));
    }
    std::vector<T const *> const & All() const
    {
        return objects;
    }

private:
    std::map<T const *, std::size_t> numbers;
    std::vector<T const *> objects;
};

class Writing
{
public:
    Writing(Project const & describedProject, OutputStream & target) : project(describedProject), writer(target, true)
    {
        for (Ptr<Bin> const & bin : project.bins)
        {
            for (Ptr<Clip> const & clip : bin->clips)
            {
                clips.Add(clip.Get());
                sources.Add(clip->media.Get());
            }
        }
    }

    void Write()
    {
        writer.WriteStartElement("storyboard").WriteAttribute("version", TEXT("1"));
        writer.WriteAttribute("title", SpelledText(project.title));
        writer.WriteStartElement("sources");
        for (Media const * const source : sources.All())
        {
            Write(*source);
        }
        writer.WriteEndElement().WriteStartElement("clips");
        for (Clip const * const clip : clips.All())
        {
            Write(*clip);
        }
        writer.WriteEndElement().WriteStartElement("bins");
        for (Ptr<Bin> const & bin : project.bins)
        {
            Write(*bin);
        }
        writer.WriteEndElement().WriteEndElement();
    }

private:
    void Write(Media const & source)
    {
        writer.WriteEmptyElement("source").WriteAttribute("id", sources.Id('s', &source));
        writer.WriteAttribute("path", SpelledName(source.path)).WriteAttribute("size", SpelledNumber(source.size));
        writer.WriteAttribute("md5", String::FromUtf8(source.sum.HexString()));
        if (source.modified != 0)
        {
            writer.WriteAttribute("modified", SpelledMoment(source.modified));
        }
    }
    void Write(Clip const & clip)
    {
        writer.WriteStartElement("clip").WriteAttribute("id", clips.Id('c', &clip));
        writer.WriteAttribute("source", sources.Id('s', clip.media.Get()));
        writer.WriteAttribute("path", SpelledName(clip.path));
        writer.WriteEmptyElement("format").WriteAttribute("kind", KindText(formatKinds, clip.format.kind));
        if (!clip.format.encoding.empty())
        {
            writer.WriteAttribute("encoding", SpelledName(clip.format.encoding));
        }
        WriteCount("width", clip.format.width);
        WriteCount("height", clip.format.height);
        WriteCount("rate", clip.format.rate);
        WriteCount("channels", clip.format.channels);
        writer.WriteEmptyElement("range").WriteAttribute("start", SpelledLength(clip.range.start));
        WriteLength(clip.range.length);
        writer.WriteEmptyElement("transition");
        writer.WriteAttribute("kind", KindText(transitionKinds, clip.transition.kind));
        WriteLength(clip.transition.length);
        writer.WriteEndElement();
    }
    void WriteCount(char const * name, std::int32_t count)
    {
        if (count != 0)
        {
            writer.WriteAttribute(name, SpelledNumber(count));
        }
    }
    void WriteLength(Ticks length)
    {
        if (length != 0)
        {
            writer.WriteAttribute("length", SpelledLength(length));
        }
    }
    void Write(Bin const & bin)
    {
        if (!bins.Add(&bin))
        {
            writer.WriteEmptyElement("again").WriteAttribute("bin", bins.Id('b', &bin));
            return;
        }
        writer.WriteStartElement("bin").WriteAttribute("id", bins.Id('b', &bin));
        writer.WriteAttribute("kind", KindText(binKinds, bin.kind)).WriteAttribute("name", SpelledName(bin.name));
        for (Ptr<Clip> const & clip : bin.clips)
        {
            writer.WriteEmptyElement("play").WriteAttribute("clip", clips.Id('c', clip.Get()));
        }
        writer.WriteEndElement();
    }

    Project const & project;
    XMLWriter writer;
    Numbered<Media> sources;
    Numbered<Clip> clips;
    Numbered<Bin> bins;
};

/// Makes a project of a document that follows the schema. What the schema cannot say is checked here.
class Reading
{
public:
    explicit Reading(XMLDocument const & document) : root(document.GetChildNode("storyboard", true)) {}

    Ptr<Project> Read()
    {
        Ptr<Project> project = Ptr<Project>::Make();
        project->title = Required(root, "title", TextOf(Text(root, "title")));
        if (project->title.size() > maxTitleSize)
        {
            Fail(root, "title");
        }
        for (XMLNode const & node : root.GetChildNodes("sources/source", false))
        {
            sources[Text(node, "id")] = ReadSource(node);
        }
        for (XMLNode const & node : root.GetChildNodes("clips/clip", false))
        {
            clips[Text(node, "id")] = ReadClip(node);
        }
        for (XMLNode const & node : root.GetChildNodes("bins/*", false))
        {
            project->bins.push_back(
                node.GetName() == TEXT("bin") ? bins[Text(node, "id")] = ReadBin(node) : Get(bins, node, "bin"));
        }
        RequireUse(usedSources.size() == sources.size(), "source");
        RequireUse(usedClips.size() == clips.size(), "clip");
        return project;
    }

private:
    template <typename T>
    using Named = std::map<String, Ptr<T>>;

    static String Text(XMLNode const & node, char const * name)
    {
        String text;
        node.GetAttribute(name, text, false);
        return text;
    }
    [[noreturn]] static void Fail(XMLNode const & node, char const * name)
    {
        throw DescriptionFailure{
            "The value \"" + Text(node, name).Utf8() + "\" of the attribute \"" + name + "\" of the " +
            node.GetName().Utf8() + " \"" + Text(node, "id").Utf8() + "\" cannot stand in a project.\n"};
    }
    template <typename T>
    static T Required(XMLNode const & node, char const * name, std::optional<T> const & value)
    {
        if (!value)
        {
            Fail(node, name);
        }
        return *value;
    }
    static void RequireUse(bool used, char const * what)
    {
        if (!used)
        {
            throw DescriptionFailure{std::string("There is a ") + what + " that nothing in the project uses.\n"};
        }
    }

    static std::string Name(XMLNode const & node, char const * name, std::size_t most = maxPathSize)
    {
        std::string const text = Required(node, name, NameOf(Text(node, name)));
        return text.size() <= most ? text : (Fail(node, name), text);
    }
    static std::string Path(XMLNode const & node)
    {
        std::string const path = Name(node, "path");
        return IsStoredPath(path) ? path : (Fail(node, "path"), path);
    }
    static std::int32_t Count(XMLNode const & node, char const * name)
    {
        constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
        return node.HasAttribute(name)
            ? static_cast<std::int32_t>(Required(node, name, NumberOf(Text(node, name), most)))
            : 0;
    }
    static Ticks Length(XMLNode const & node, char const * name)
    {
        return node.HasAttribute(name) ? Required(node, name, LengthOf(Text(node, name))) : 0;
    }
    template <typename Kind, std::size_t count>
    static Kind KindOf(XMLNode const & node, char const * const (&names)[count])
    {
        std::string const text = Text(node, "kind").Utf8();
        std::size_t number = 0;
        while (number < count && text != names[number])
        {
            ++number;
        }
        return number < count ? static_cast<Kind>(number) : (Fail(node, "kind"), Kind());
    }
    template <typename T>
    static Ptr<T> Get(Named<T> const & objects, XMLNode const & node, char const * name)
    {
        auto const found = objects.find(Text(node, name));
        return found != objects.end() ? found->second : (Fail(node, name), Ptr<T>());
    }

    static Ptr<Media> ReadSource(XMLNode const & node)
    {
        constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
        Ptr<Media> source = Ptr<Media>::Make();
        source->path = Path(node);
        source->size = Required(node, "size", NumberOf(Text(node, "size"), most));
        if (!source->sum.SetHexString(Text(node, "md5").Utf8()))
        {
            Fail(node, "md5");
        }
        if (node.HasAttribute("modified"))
        {
            source->modified = Required(node, "modified", MomentOf(Text(node, "modified")));
        }
        return source;
    }
    Ptr<Clip> ReadClip(XMLNode const & node)
    {
        Ptr<Clip> clip = Ptr<Clip>::Make();
        clip->path = Path(node);
        clip->media = Get(sources, node, "source");
        usedSources.insert(clip->media.Get());
        XMLNode const format = node.GetChildNode("format", true);
        constexpr std::size_t mostOfEncoding = 64;
        clip->format.kind = KindOf<Format::Kind>(format, formatKinds);
        clip->format.encoding = Name(format, "encoding", mostOfEncoding);
        clip->format.width = Count(format, "width");
        clip->format.height = Count(format, "height");
        clip->format.rate = Count(format, "rate");
        clip->format.channels = Count(format, "channels");
        XMLNode const range = node.GetChildNode("range", true);
        clip->range.start = Length(range, "start");
        clip->range.length = Length(range, "length");
        XMLNode const transition = node.GetChildNode("transition", true);
        clip->transition.kind = KindOf<Transition::Kind>(transition, transitionKinds);
        clip->transition.length = Length(transition, "length");
        return clip;
    }
    Ptr<Bin> ReadBin(XMLNode const & node)
    {
        Ptr<Bin> bin = Ptr<Bin>::Make();
        bin->kind = KindOf<Bin::Kind>(node, binKinds);
        bin->name = Name(node, "name");
        for (XMLNode const & play : node.GetChildNodes("play", false))
        {
            bin->clips.push_back(Get(clips, play, "clip"));
            usedClips.insert(bin->clips.back().Get());
        }
        return bin;
    }

    XMLNode const root;
    Named<Media> sources;
    Named<Clip> clips;
    Named<Bin> bins;
    std::set<Media const *> usedSources;
    std::set<Clip const *> usedClips;
};

template <typename Action>
auto WithComponent(Action action)
{
    kv::tools::ComUse const com;
    try
    {
        return action();
    }
    catch (XMLParser::Exception const & failure)
    {
        std::string const reason = failure.message.Utf8();
        throw DescriptionFailure{reason.empty() ? "The description does not follow its schema.\n" : reason};
    }
}

XMLDocument Parsed(std::string const & text)
{
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    {
        throw DescriptionFailure{"The description is longer than 2 GiB.\n"};
    }
    return XMLParser::ParseData(text.data(), static_cast<int>(text.size()));
}

/// The bytes of a resource of the program that is running.
std::string ResourceBytes(unsigned id)
{
    WCHAR const * const rawData = MAKEINTRESOURCEW(10); // RT_RCDATA, which is narrow where UNICODE is not defined
    HRSRC const found = FindResourceW(nullptr, MAKEINTRESOURCEW(id), rawData);
    void const * const bytes = found == nullptr ? nullptr : LockResource(::LoadResource(nullptr, found));
    if (bytes == nullptr)
    {
        throw DescriptionFailure{"The program lacks its resources: it was built without them.\n"};
    }
    return std::string(static_cast<char const *>(bytes), SizeofResource(nullptr, found));
}

} // namespace

void WriteDescription(Project const & project, OutputStream & target)
{
    Writing(project, target).Write();
    target << '\n';
}

Ptr<Project> ReadDescription(std::string const & xml)
{
    return WithComponent(
        [&]
        {
            XMLDocument document = Parsed(xml);
            std::string const schema = DescriptionSchema();
            document.ValidateSchema(schema.data(), static_cast<int>(schema.size()));
            return Reading(document).Read();
        });
}

std::string DescriptionPage(Project const & project)
{
    return WithComponent(
        [&]
        {
            MemoryOutputStream description;
            WriteDescription(project, description);
            XMLNode const page = Parsed(description.GetContent()).TransformNode(Parsed(DescriptionStyleSheet()));
            // The declaration that a browser looks for cannot come out of the component.
            return "<!DOCTYPE html>\n" + page.GetChildNode("html", true).GetXML().Utf8() + '\n';
        });
}

std::string DescriptionSchema()
{
    return ResourceBytes(DESCRIPTION_SCHEMA);
}

std::string DescriptionStyleSheet()
{
    return ResourceBytes(DESCRIPTION_STYLE_SHEET);
}

} // namespace Storyboard
