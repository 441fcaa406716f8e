#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/core/String.h>
#include <kvcore/examples/storyboard/Ptr.h>
#include <kvcore/streams/MD5.h>
#include <kvcore/streams/Serializing.h>

/// The project as the program holds it: a project has bins, a bin has clips, a clip plays a stretch of a source.
///
/// References point down this ladder only, from project to bin to clip to media, and each step accepts the class of the
/// next one alone. So nothing can come to refer to itself, not even out of a damaged file, and counting references is
/// enough to free everything.
///
/// Each class reads what its earlier versions wrote; `docs/storyboard-format.md` has the fields. Reading fails with
/// StreamBase::Exception: the library's failures, and code 3 with a text of this program for fields that make no sense.
namespace Storyboard
{

/// Lengths are counts of 100-nanosecond ticks, points in time are such counts from 1601-01-01 UTC.
using Ticks = std::int64_t;
inline constexpr Ticks ticksPerSecond = 10'000'000;

/// What a source is and how it plays. A value: many clips have the same one.
class Format : public KVUnknown, public ISerializable
{
public:
    /// Stored as numbers, which stay as they are.
    enum class Kind : std::uint8_t
    {
        Other,
        Picture,
        Film,
        Sound,
        Text
    };
    static constexpr int kinds = 5;

    Kind kind = Kind::Other;
    std::string encoding; ///< such as "PNG"; empty if unknown
    // 0 if unknown, or if it makes no sense for the kind:
    std::int32_t width = 0; ///< in pixels
    std::int32_t height = 0;
    std::int32_t rate = 0; ///< of film: frames in 1,000 seconds; of sound: samples in a second
    std::int32_t channels = 0;

    bool operator==(Format const & other) const;
    /// How many bytes Write produces.
    std::int64_t PayloadSize() const;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// A stretch of a source. A value.
class TimeRange : public KVUnknown, public ISerializable
{
public:
    Ticks start = 0;
    Ticks length = 0; ///< 0 if unknown

    bool operator==(TimeRange const & other) const;
    std::int64_t PayloadSize() const;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// How a clip follows the one before it. A value.
class Transition : public KVUnknown, public ISerializable
{
public:
    /// Stored as numbers, which stay as they are.
    enum class Kind : std::uint8_t
    {
        Cut,
        Fade
    };
    static constexpr int kinds = 2;

    Kind kind = Kind::Cut;
    Ticks length = 0;

    bool operator==(Transition const & other) const;
    std::int64_t PayloadSize() const;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// A source: content found on disk. Files of one content are one source, whatever their names.
///
/// The class was called `Storyboard::Footage` while films were all that it could hold.
class Media : public KVUnknown, public ISerializable
{
public:
    std::string path; ///< where the content was first found, relative to the folder; see StoredName
    std::int64_t size = 0;
    MD5Sum sum;
    Ticks modified = 0; ///< of the file at `path`; 0 if unknown; since version 2

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// A stretch of a source, ready to play.
class Clip : public KVUnknown, public ISerializable
{
public:
    std::string path; ///< the file that it stands for, relative to the folder; its last part is the clip's name
    Format format;
    TimeRange range;
    Ptr<Media> media;
    Transition transition; ///< since version 2; clips of version 1 cut

    std::string Name() const;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// A named list of clips: those of one folder, or a collection from all folders.
class Bin : public KVUnknown, public ISerializable
{
public:
    /// Stored as numbers, which stay as they are.
    enum class Kind : std::uint8_t
    {
        Folder,
        Collection
    };
    static constexpr int kinds = 2;

    Kind kind = Kind::Folder;
    std::string name; ///< of a folder: its path relative to the project's folder, which itself is "."
    std::vector<Ptr<Clip>> clips;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

class Project : public KVUnknown, public ISerializable
{
public:
    String title; ///< at most `maxTitleSize` elements
    std::vector<Ptr<Bin>> bins;

    void Read(SerializingInputStream & stream, short version) override;
    void Write(SerializingOutputStream & stream) const override;
    short GetVersion() const override;
};

/// How much there is of everything in a project.
struct ProjectCount
{
    std::int64_t folders = 0;
    std::int64_t collections = 0;
    std::int64_t clips = 0;   ///< each once, however many bins it is in
    std::int64_t sources = 0; ///< each once, however many clips it has
    std::uint64_t size = 0;   ///< of the sources, in bytes
};
ProjectCount Count(Project const & project);

/// The clips of a project, each once, in the order of the bins.
std::vector<Ptr<Clip>> AllClips(Project const & project);

/// Whether `path` may stand in a project: parts between slashes, none of them empty, "." or "..", no NUL, at most
/// `maxPathSize` bytes. So a path never leads out of the folder that it is relative to.
bool IsStoredPath(std::string const & path);
inline constexpr int maxPathSize = 32 * 1024;

/// The longest title of a project, in UTF-16 elements.
inline constexpr int maxTitleSize = 32 * 1024;

} // namespace Storyboard
