#pragma once

// The resources of a module, from either of the two forms that carry them: the tree of a Windows file (PE), and the
// records that a resource compiler writes (.res), which stand in a note of a file of this system (ELF).
//
// Both are read once, whole, with every offset, size and count held against the bytes that are there. What points out
// of them is left out, and what is found lies within them.

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <kvcore/platform/types.h>

namespace kv::platform
{

/// The type or the name of a resource: a number, or a text that lives elsewhere.
struct ResourceId
{
    /// Empty for a number.
    std::u16string_view text;
    WORD number = 0;

    bool IsNumber() const noexcept
    {
        return text.empty();
    }
};

/// One resource in one language.
struct ResourceData
{
    unsigned char const * data;
    DWORD size;
    WORD language;
};

/// A text of the tables of strings where it stands, which may be any address.
struct StringPlace
{
    unsigned char const * units; // null where its block is not there
    std::size_t length;          // in units; 0 for a text that is not all there
};

/// What a look-up found: a resource, or which step failed.
struct FoundResource
{
    ResourceData const * data;
    DWORD error;
};

/// Texts before numbers, each in order, as the tree of a Windows file has them. Letters' case does not matter.
int CompareIds(ResourceId const & left, ResourceId const & right) noexcept;

class ResourceDirectory
{
public:
    /// A resource with its languages in order.
    struct Resource
    {
        ResourceId type;
        ResourceId name;
        std::vector<ResourceData> languages;
        /// The one for those who ask for no language.
        std::size_t preferred = 0;
    };

    ResourceDirectory() = default;
    ResourceDirectory(ResourceDirectory const &) = delete;
    ResourceDirectory & operator=(ResourceDirectory const &) = delete;

    /// Reads the tree of a Windows file as it lies on the disk. False if it is no such file. Throws std::bad_alloc.
    bool ReadPe(std::span<unsigned char const> file);
    /// Reads the notes of a file of this system as it lies on the disk. False if it is no such file.
    bool ReadElf(std::span<unsigned char const> file);
    /// Reads a run of notes; those that hold no resources are passed by.
    void ReadNotes(std::span<unsigned char const> notes);
    /// To be called once, behind the last of them.
    void Finish();

    bool IsEmpty() const noexcept
    {
        return resources.empty();
    }
    /// In order.
    std::vector<Resource> const & All() const noexcept
    {
        return resources;
    }
    /// The quick way to numbers in the language of those who ask for none; null if it is not there.
    ResourceData const * FindNumbers(WORD type, WORD name) const noexcept;
    /// One of a block's 16 strings, in the language of those who ask for none.
    StringPlace FindString(WORD block, unsigned index) const noexcept
    {
        return block < stringRows.size() ? strings[stringRows[block] + index] : StringPlace{nullptr, 0};
    }
    /// A resource whatever its type and name are.
    FoundResource Find(ResourceId const & type, ResourceId const & name, WORD language) const noexcept;
    /// The resource, or the first of a type if `name` is null; null with the error.
    Resource const * FindAll(ResourceId const & type, ResourceId const * name, DWORD & error) const noexcept;

private:
    struct Collected
    {
        ResourceId type;
        ResourceId name;
        ResourceData data;
    };

    friend class PeTree;
    void ReadRecords(std::span<unsigned char const> records);
    void Index();
    void IndexStrings(WORD block, ResourceData const & data);
    std::u16string_view Keep(std::span<unsigned char const> units);

    std::vector<Collected> collected;
    std::vector<Resource> resources;
    /// What the texts of types and names are kept in.
    std::deque<std::u16string> texts;
    /// Those with a number for a type and for a name, both in one, in order; and their places in `resources`.
    std::vector<std::uint32_t> numbers;
    std::vector<std::uint32_t> places;
    /// Every block's 16 strings, measured once; and for each block where its own begin. The first 16 are of no block.
    std::vector<StringPlace> strings;
    std::vector<std::uint32_t> stringRows;
};

/// What a caller gives for a type or a name: MAKEINTRESOURCE, "#12" or a text. False with the last error set.
bool ReadResourceId(WCHAR const * given, ResourceId & id) noexcept;

} // namespace kv::platform
