#include <kvcore/examples/storyboard/Model.h>

#include <set>

#include <kvcore/examples/storyboard/ProjectStream.h>

namespace Storyboard
{

namespace
{

[[noreturn]] void Fail(WCHAR const * text)
{
    throw StreamBase::Exception{3, text};
}

template <typename T>
void Require(T const & condition)
{
    if (!condition)
    {
        Fail(TEXT("Illegal value in project"));
    }
}

/// An enumeration of the values from 0 to `count` - 1.
template <typename Enum>
void ReadKind(InputStream & stream, Enum & kind, int count)
{
    unsigned char number;
    stream >> number;
    Require(number < count);
    kind = static_cast<Enum>(number);
}

template <typename Enum>
void WriteKind(OutputStream & stream, Enum kind)
{
    stream << static_cast<unsigned char>(kind);
}

/// How many bytes a text takes. The limit keeps a few compressed bytes from taking memory without end.
int ReadTextSize(InputStream & stream, int maxSize)
{
    int size;
    stream >> size;
    if (size < 0 || size > maxSize)
    {
        Fail(TEXT("Illegal text length in project"));
    }
    return size;
}

/// The wire form is that of every narrow string.
std::string ReadText(InputStream & stream, int maxSize)
{
    int const size = ReadTextSize(stream, maxSize);
    std::string text(static_cast<std::size_t>(size), '\0');
    stream.Read(text.data(), size);
    return text;
}

/// The wire form is that of every wide string, whose length is in bytes.
String ReadTitle(InputStream & stream)
{
    constexpr int unitSize = sizeof(WCHAR);
    int const size = ReadTextSize(stream, maxTitleSize * unitSize);
    if (size % unitSize != 0)
    {
        Fail(TEXT("Illegal text length in project"));
    }
    WString title(static_cast<std::size_t>(size / unitSize), WCHAR(0));
    stream.Read(reinterpret_cast<char *>(title.data()), size);
    return title;
}

std::string ReadPath(InputStream & stream)
{
    std::string path = ReadText(stream, maxPathSize);
    if (!IsStoredPath(path))
    {
        Fail(TEXT("Illegal path in project"));
    }
    return path;
}

Ticks ReadTicks(InputStream & stream)
{
    Ticks ticks;
    stream >> _strm64(ticks);
    Require(ticks >= 0);
    return ticks;
}

constexpr int maxEncodingSize = 64;

template <typename T>
std::vector<Ptr<T>> ReadList(ProjectInputStream & stream)
{
    // The list grows as its members arrive: the count is a claim, not a size.
    int count;
    stream >> count;
    Require(count >= 0);
    std::vector<Ptr<T>> list;
    for (int i = 0; i < count; ++i)
    {
        list.push_back(stream.ReadShared<T>());
    }
    return list;
}

template <typename T>
void WriteList(SerializingOutputStream & stream, std::vector<Ptr<T>> const & list)
{
    stream << static_cast<int>(list.size());
    for (Ptr<T> const & member : list)
    {
        stream.WriteRef(member.Get());
    }
}

} // namespace

bool Format::operator==(Format const & other) const
{
    return kind == other.kind && encoding == other.encoding && width == other.width && height == other.height &&
        rate == other.rate && channels == other.channels;
}

std::int64_t Format::PayloadSize() const
{
    return 1 + 4 + static_cast<std::int64_t>(encoding.size()) + 4 * 4;
}

void Format::Read(SerializingInputStream & stream, short)
{
    ProjectInputStream::Record const record(stream);
    ReadKind(stream, kind, kinds);
    encoding = ReadText(stream, maxEncodingSize);
    stream >> width >> height >> rate >> channels;
    Require(width >= 0 && height >= 0 && rate >= 0 && channels >= 0);
}

void Format::Write(SerializingOutputStream & stream) const
{
    WriteKind(stream, kind);
    stream << encoding << width << height << rate << channels;
}

short Format::GetVersion() const
{
    return 1;
}

bool TimeRange::operator==(TimeRange const & other) const
{
    return start == other.start && length == other.length;
}

std::int64_t TimeRange::PayloadSize() const
{
    return 8 + 8;
}

void TimeRange::Read(SerializingInputStream & stream, short)
{
    ProjectInputStream::Record const record(stream);
    start = ReadTicks(stream);
    length = ReadTicks(stream);
}

void TimeRange::Write(SerializingOutputStream & stream) const
{
    stream << _strm64(start) << _strm64(length);
}

short TimeRange::GetVersion() const
{
    return 1;
}

bool Transition::operator==(Transition const & other) const
{
    return kind == other.kind && length == other.length;
}

std::int64_t Transition::PayloadSize() const
{
    return 1 + 8;
}

void Transition::Read(SerializingInputStream & stream, short)
{
    ProjectInputStream::Record const record(stream);
    ReadKind(stream, kind, kinds);
    length = ReadTicks(stream);
}

void Transition::Write(SerializingOutputStream & stream) const
{
    WriteKind(stream, kind);
    stream << _strm64(length);
}

short Transition::GetVersion() const
{
    return 1;
}

void Media::Read(SerializingInputStream & stream, short version)
{
    ProjectInputStream::Record const record(stream, *this);
    path = ReadPath(stream);
    stream >> _strm64(size);
    Require(size >= 0);
    // The sum's own form is text; its digits are how a sum is set from outside.
    std::string const digits = ReadText(stream, 32);
    Require(sum.SetHexString(digits));
    modified = version >= 2 ? ReadTicks(stream) : 0;
}

void Media::Write(SerializingOutputStream & stream) const
{
    stream << path << _strm64(size) << sum.HexString() << _strm64(modified);
}

short Media::GetVersion() const
{
    return 2;
}

std::string Clip::Name() const
{
    return path.substr(path.rfind('/') + 1);
}

void Clip::Read(SerializingInputStream & stream, short version)
{
    ProjectInputStream::Record record(stream, *this);
    path = ReadPath(stream);
    record.Stream().ReadValue(format);
    record.Stream().ReadValue(range);
    media = record.Stream().ReadShared<Media>();
    if (version >= 2)
    {
        record.Stream().ReadValue(transition);
    }
    else
    {
        transition = Transition();
    }
}

void Clip::Write(SerializingOutputStream & stream) const
{
    stream << path;
    stream.Write(format);
    stream.Write(range);
    stream.WriteRef(media.Get());
    stream.Write(transition);
}

short Clip::GetVersion() const
{
    return 2;
}

void Bin::Read(SerializingInputStream & stream, short)
{
    ProjectInputStream::Record record(stream, *this);
    ReadKind(stream, kind, kinds);
    name = ReadText(stream, maxPathSize);
    clips = ReadList<Clip>(record.Stream());
}

void Bin::Write(SerializingOutputStream & stream) const
{
    WriteKind(stream, kind);
    stream << name;
    WriteList(stream, clips);
}

short Bin::GetVersion() const
{
    return 1;
}

void Project::Read(SerializingInputStream & stream, short)
{
    ProjectInputStream::Record record(stream, *this);
    title = ReadTitle(stream);
    bins = ReadList<Bin>(record.Stream());
}

void Project::Write(SerializingOutputStream & stream) const
{
    stream << title;
    WriteList(stream, bins);
}

short Project::GetVersion() const
{
    return 1;
}

std::vector<Ptr<Clip>> AllClips(Project const & project)
{
    std::set<Clip const *> seen;
    std::vector<Ptr<Clip>> clips;
    for (Ptr<Bin> const & bin : project.bins)
    {
        for (Ptr<Clip> const & clip : bin->clips)
        {
            if (seen.insert(clip.Get()).second)
            {
                clips.push_back(clip);
            }
        }
    }
    return clips;
}

ProjectCount Count(Project const & project)
{
    ProjectCount count;
    for (Ptr<Bin> const & bin : project.bins)
    {
        ++(bin->kind == Bin::Kind::Folder ? count.folders : count.collections);
    }
    std::set<Media const *> sources;
    for (Ptr<Clip> const & clip : AllClips(project))
    {
        ++count.clips;
        if (sources.insert(clip->media.Get()).second)
        {
            count.size += static_cast<std::uint64_t>(clip->media->size);
        }
    }
    count.sources = static_cast<std::int64_t>(sources.size());
    return count;
}

bool IsStoredPath(std::string const & path)
{
    if (path.empty() || path.size() > maxPathSize || path.find('\0') != std::string::npos)
    {
        return false;
    }
    std::size_t start = 0;
    for (;;)
    {
        std::size_t const slash = path.find('/', start);
        std::string const part = path.substr(start, slash - start);
        if (part.empty() || part == "." || part == "..")
        {
            return false;
        }
        if (slash == std::string::npos)
        {
            return true;
        }
        start = slash + 1;
    }
}

} // namespace Storyboard
