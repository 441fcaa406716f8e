#include "ResourceDirectory.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include <elf.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/libloaderapi.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/paths/NativeNames.h>

namespace kv::platform
{

namespace
{

using Bytes = std::span<unsigned char const>;

/// A value at a place that need not be aligned; 0 where there is none.
template <class T>
T Get(Bytes bytes, std::uint64_t at) noexcept
{
    T value{};
    if (at <= bytes.size() && bytes.size() - at >= sizeof(T))
    {
        std::memcpy(&value, bytes.data() + at, sizeof(T));
    }
    return value;
}

/// Part of `bytes`; empty where it is not all there.
Bytes Part(Bytes bytes, std::uint64_t at, std::uint64_t size) noexcept
{
    return at <= bytes.size() && size <= bytes.size() - at ? bytes.subspan(at, size) : Bytes();
}

constexpr std::uint64_t Aligned(std::uint64_t at) noexcept
{
    return (at + 3) & ~std::uint64_t{3};
}

constexpr std::uint32_t NumberKey(WORD type, WORD name) noexcept
{
    return std::uint32_t{type} << 16 | name;
}

constexpr WORD stringType = 6;
constexpr unsigned stringsInBlock = 16;

/// Nobody names a resource at such length; a damaged file may, over and over.
constexpr std::size_t longestText = 512;

} // namespace

int CompareIds(ResourceId const & left, ResourceId const & right) noexcept
{
    if (left.IsNumber() != right.IsNumber())
    {
        return left.IsNumber() ? 1 : -1;
    }
    if (left.text.data() == right.text.data() && left.text.size() == right.text.size())
    {
        return int{left.number} - int{right.number};
    }
    return CompareNames(left.text.data(), left.text.size(), right.text.data(), right.text.size());
}

bool ReadResourceId(WCHAR const * given, ResourceId & id) noexcept
{
    if (IS_INTRESOURCE(given))
    {
        id.number = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(given));
        return true;
    }
    if (*given != '#')
    {
        // No text here stands for a number, so an empty name is one that no resource has.
        id.text = *given != 0 ? std::u16string_view(given) : std::u16string_view(u"\0", 1);
        return true;
    }
    // Kept: the number ends at the first element that is no digit, and what follows does not count.
    std::uint32_t number = 0;
    while (*++given >= '0' && *given <= '9')
    {
        number = number * 10 + (*given - '0');
        if (number > 0xFFFF)
        {
            SetLastError(ERROR_INVALID_PARAMETER);
            return false;
        }
    }
    id.number = static_cast<WORD>(number);
    return true;
}

/// The tree of a Windows file: three levels of directories (type, name, language) over entries that name the data by
/// its address in memory, which the table of sections leads back to a place in the file.
class PeTree
{
public:
    PeTree(Bytes wholeFile, ResourceDirectory & target) : file(wholeFile), directory(target) {}

    bool Read()
    {
        constexpr std::uint64_t optionalHeader = 24;
        std::uint64_t const headers = Get<DWORD>(file, 0x3C);
        if (Get<WORD>(file, 0) != 0x5A4D || Get<DWORD>(file, headers) != 0x00004550)
        {
            return false;
        }
        WORD const magic = Get<WORD>(file, headers + optionalHeader);
        if (magic != 0x10B && magic != 0x20B)
        {
            return false;
        }
        WORD const optionalSize = Get<WORD>(file, headers + 20);
        sections = Part(
            file, headers + optionalHeader + optionalSize, std::uint64_t{Get<WORD>(file, headers + 6)} * sectionSize);
        // The tables' count stands before them; the resources' are the third.
        std::uint64_t const tables = headers + optionalHeader + (magic == 0x10B ? 96 : 112);
        if (Get<DWORD>(file, tables - 4) < 3 || optionalSize < (magic == 0x10B ? 96 : 112) + 3 * 8)
        {
            return true;
        }
        tree = FileBytes(Get<DWORD>(file, tables + 16), 0);
        // As many entries as there can be if no two of them are one: a tree that names parts of it over and over would
        // have more than any memory holds.
        entriesLeft = tree.size() / 8;
        textLeft = tree.size();
        ReadLevel(0, 0, {});
        return true;
    }

private:
    static constexpr std::uint64_t sectionSize = 40;

    /// From an address in memory on, `size` bytes, or with 0 all that the file has of its section.
    Bytes FileBytes(DWORD address, DWORD size) const
    {
        for (std::uint64_t at = 0; at + sectionSize <= sections.size(); at += sectionSize)
        {
            DWORD const begin = Get<DWORD>(sections, at + 12);
            DWORD const stored = Get<DWORD>(sections, at + 16);
            if (address >= begin && address - begin < stored)
            {
                std::uint64_t const place = std::uint64_t{Get<DWORD>(sections, at + 20)} + (address - begin);
                std::uint64_t const there = place < file.size() ? file.size() - place : 0;
                DWORD const left = stored - (address - begin);
                return size == 0   ? Part(file, place, std::min<std::uint64_t>(left, there))
                    : size <= left ? Part(file, place, size)
                                   : Bytes();
            }
        }
        return {};
    }

    /// A number, or a text; what is neither is an empty text, and so is a text with a NUL inside, which nobody could
    /// ask for. A text that several entries name is kept once.
    bool ReadId(DWORD name, ResourceId & id)
    {
        if ((name & 0x80000000u) == 0)
        {
            id = {{}, static_cast<WORD>(name)};
            return true;
        }
        std::uint64_t const at = name & 0x7FFFFFFFu;
        std::size_t const length = Get<WORD>(tree, at);
        auto const [known, isNew] = texts.try_emplace(at);
        if (isNew && length <= longestText && length * 2 <= textLeft)
        {
            textLeft -= length * 2;
            std::u16string_view const text = directory.Keep(Part(tree, at + 2, length * 2));
            known->second = text.find(u'\0') == text.npos ? text : std::u16string_view();
        }
        id = {known->second, 0};
        return !id.text.empty();
    }

    void ReadLevel(unsigned level, std::uint64_t at, ResourceDirectory::Collected const & above)
    {
        std::uint64_t const count = std::uint64_t{Get<WORD>(tree, at + 12)} + Get<WORD>(tree, at + 14);
        Bytes const entries = Part(tree, at + 16, count * 8);
        for (std::uint64_t entry = 0; entry < entries.size() && entriesLeft != 0; entry += 8)
        {
            --entriesLeft;
            DWORD const name = Get<DWORD>(entries, entry);
            DWORD const place = Get<DWORD>(entries, entry + 4);
            bool const isDirectory = (place & 0x80000000u) != 0;
            if (isDirectory != (level < 2))
            {
                continue;
            }
            ResourceDirectory::Collected here = above;
            if (level == 2)
            {
                AddData(place, static_cast<WORD>(name), here);
            }
            else if (ReadId(name, level == 0 ? here.type : here.name))
            {
                ReadLevel(level + 1, place & 0x7FFFFFFFu, here);
            }
        }
    }

    void AddData(DWORD place, WORD language, ResourceDirectory::Collected & here)
    {
        Bytes const entry = Part(tree, place, 16);
        DWORD const size = Get<DWORD>(entry, 4);
        if (entry.empty())
        {
            return;
        }
        Bytes const data = FileBytes(Get<DWORD>(entry, 0), std::max<DWORD>(size, 1));
        if (!data.empty())
        {
            here.data = {data.data(), size, language};
            directory.collected.push_back(here);
        }
    }

    Bytes const file;
    ResourceDirectory & directory;
    Bytes sections;
    Bytes tree;
    std::size_t entriesLeft = 0;
    std::size_t textLeft = 0;
    std::unordered_map<std::uint64_t, std::u16string_view> texts;
};

std::u16string_view ResourceDirectory::Keep(Bytes units)
{
    if (units.empty())
    {
        return {};
    }
    std::u16string & text = texts.emplace_back(units.size() / 2, u'\0');
    std::memcpy(text.data(), units.data(), text.size() * 2);
    return text;
}

bool ResourceDirectory::ReadPe(Bytes file)
{
    return PeTree(file, *this).Read();
}

bool ResourceDirectory::ReadElf(Bytes file)
{
    Elf64_Ehdr const header = Get<Elf64_Ehdr>(file, 0);
    bool const readable = std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
        header.e_ident[EI_DATA] == ELFDATA2LSB && (header.e_phnum == 0 || header.e_phentsize == sizeof(Elf64_Phdr));
    if (!readable)
    {
        return false;
    }
    // No byte is part of two notes; a damaged file that says otherwise is read once over at most.
    std::uint64_t left = file.size();
    for (unsigned i = 0; i < header.e_phnum && header.e_phoff <= file.size(); ++i)
    {
        Elf64_Phdr const part = Get<Elf64_Phdr>(file, header.e_phoff + i * sizeof(Elf64_Phdr));
        if (part.p_type == PT_NOTE && part.p_filesz <= left)
        {
            left -= part.p_filesz;
            ReadNotes(Part(file, part.p_offset, part.p_filesz));
        }
    }
    return true;
}

void ResourceDirectory::ReadNotes(Bytes notes)
{
    static constexpr char owner[] = "KVCore";
    constexpr DWORD resourceNote = 1;
    for (std::uint64_t at = 0; at < notes.size();)
    {
        std::uint64_t const nameSize = Get<DWORD>(notes, at);
        std::uint64_t const size = Get<DWORD>(notes, at + 4);
        Bytes const name = Part(notes, at + 12, nameSize);
        std::uint64_t const content = at + 12 + Aligned(nameSize);
        if (Get<DWORD>(notes, at + 8) == resourceNote && name.size() == sizeof(owner) &&
            std::memcmp(name.data(), owner, sizeof(owner)) == 0)
        {
            ReadRecords(Part(notes, content, size));
        }
        at = content + Aligned(size);
    }
}

/// A record: sizes of the data and of the header, then in the header type, name, and behind them the language; the data
/// follows, and each part begins at a multiple of 4.
void ResourceDirectory::ReadRecords(Bytes records)
{
    constexpr std::uint64_t shortestHeader = 32;
    for (std::uint64_t at = 0; at + shortestHeader <= records.size();)
    {
        std::uint64_t const size = Get<DWORD>(records, at);
        std::uint64_t const headerSize = Get<DWORD>(records, at + 4);
        Bytes const header = Part(records, at, headerSize);
        Bytes const data = Part(records, at + headerSize, size);
        if (headerSize < shortestHeader || header.empty() || data.size() != size)
        {
            return;
        }
        std::uint64_t place = 8;
        auto const readId = [this, &header, &place]
        {
            if (Get<WORD>(header, place) == 0xFFFF)
            {
                place += 4;
                return ResourceId{{}, Get<WORD>(header, place - 2)};
            }
            std::uint64_t const begin = place;
            while (place < header.size() && Get<WORD>(header, place) != 0)
            {
                place += 2;
            }
            std::uint64_t const length = place - begin;
            place += 2;
            return ResourceId{length / 2 <= longestText ? Keep(Part(header, begin, length)) : std::u16string_view(), 0};
        };
        Collected record{};
        record.type = readId();
        record.name = readId();
        place = Aligned(place);
        // The first record is empty, with a type of 0: it tells this form from an older one. A text that is none reads
        // so, too.
        bool const isMark = record.type.IsNumber() && record.type.number == 0;
        if (!isMark && place + 16 <= header.size())
        {
            record.data = {data.data(), static_cast<DWORD>(size), Get<WORD>(header, place + 6)};
            collected.push_back(record);
        }
        at = Aligned(at + headerSize + size);
    }
}

namespace
{

/// What to take where no language is asked for. Behind these, whatever comes first.
std::size_t PreferredOf(std::vector<ResourceData> const & languages)
{
    static LANGID const user = GetUserDefaultLangID();
    WORD const wishes[] = {0, user, PRIMARYLANGID(user), 0x0409, 0x0009};
    for (WORD const wish : wishes)
    {
        for (std::size_t i = 0; i < languages.size(); ++i)
        {
            if (languages[i].language == wish)
            {
                return i;
            }
        }
    }
    return 0;
}

} // namespace

void ResourceDirectory::Finish()
{
    std::stable_sort(
        collected.begin(), collected.end(),
        [](Collected const & left, Collected const & right)
        {
            int order = CompareIds(left.type, right.type);
            order = order != 0 ? order : CompareIds(left.name, right.name);
            return order != 0 ? order < 0 : left.data.language < right.data.language;
        });
    for (Collected const & next : collected)
    {
        bool const another = resources.empty() || CompareIds(resources.back().type, next.type) != 0 ||
            CompareIds(resources.back().name, next.name) != 0;
        if (another)
        {
            resources.push_back({next.type, next.name, {}, 0});
        }
        std::vector<ResourceData> & languages = resources.back().languages;
        if (languages.empty() || languages.back().language != next.data.language)
        {
            languages.push_back(next.data);
        }
    }
    collected = {};
    Index();
}

void ResourceDirectory::Index()
{
    for (std::size_t i = 0; i < resources.size(); ++i)
    {
        Resource & resource = resources[i];
        resource.preferred = PreferredOf(resource.languages);
        if (resource.type.IsNumber() && resource.name.IsNumber())
        {
            numbers.push_back(NumberKey(resource.type.number, resource.name.number));
            places.push_back(static_cast<std::uint32_t>(i));
            if (resource.type.number == stringType)
            {
                IndexStrings(resource.name.number, resource.languages[resource.preferred]);
            }
        }
    }
}

/// Each string is a length and as many units, one behind the other. Behind one that is not all there, none is.
void ResourceDirectory::IndexStrings(WORD block, ResourceData const & data)
{
    if (stringRows.size() <= block)
    {
        strings.resize(std::max<std::size_t>(strings.size(), stringsInBlock));
        stringRows.resize(std::size_t{block} + 1);
    }
    stringRows[block] = static_cast<std::uint32_t>(strings.size());
    Bytes const bytes(data.data, data.size);
    std::uint64_t at = 0;
    for (unsigned i = 0; i < stringsInBlock; ++i)
    {
        std::uint64_t const begin = at + sizeof(WORD);
        std::size_t const length = Get<WORD>(bytes, at);
        bool const isThere = begin <= bytes.size() && length <= (bytes.size() - begin) / 2;
        strings.push_back(isThere ? StringPlace{data.data + begin, length} : StringPlace{data.data, 0});
        at = isThere ? begin + length * 2 : bytes.size();
    }
}

ResourceData const * ResourceDirectory::FindNumbers(WORD type, WORD name) const noexcept
{
    std::uint32_t const key = NumberKey(type, name);
    // A search without a branch: which way it goes is nothing that a processor could guess.
    std::uint32_t const * found = numbers.data();
    for (std::size_t left = numbers.size(); left > 1;)
    {
        std::size_t const half = left / 2;
        found += found[half - 1] < key ? half : 0;
        left -= half;
    }
    if (numbers.empty() || *found != key)
    {
        return nullptr;
    }
    Resource const & resource = resources[places[static_cast<std::size_t>(found - numbers.data())]];
    return &resource.languages[resource.preferred];
}

ResourceDirectory::Resource const *
ResourceDirectory::FindAll(ResourceId const & type, ResourceId const * name, DWORD & error) const noexcept
{
    auto const found = std::partition_point(
        resources.begin(), resources.end(),
        [&](Resource const & resource)
        {
            int const order = CompareIds(resource.type, type);
            return order < 0 || (order == 0 && name != nullptr && CompareIds(resource.name, *name) < 0);
        });
    bool const foundType = found != resources.end() && CompareIds(found->type, type) == 0;
    if (foundType && (name == nullptr || CompareIds(found->name, *name) == 0))
    {
        return &*found;
    }
    // The name's place may lie behind the last one of its type.
    bool const hasType = foundType || (found != resources.begin() && CompareIds(std::prev(found)->type, type) == 0);
    error = IsEmpty() ? ERROR_RESOURCE_DATA_NOT_FOUND
        : hasType     ? ERROR_RESOURCE_NAME_NOT_FOUND
                      : ERROR_RESOURCE_TYPE_NOT_FOUND;
    return nullptr;
}

FoundResource ResourceDirectory::Find(ResourceId const & type, ResourceId const & name, WORD language) const noexcept
{
    DWORD error = ERROR_SUCCESS;
    Resource const * const resource = FindAll(type, &name, error);
    if (resource == nullptr)
    {
        return {nullptr, error};
    }
    if (PRIMARYLANGID(language) == 0)
    {
        return {&resource->languages[resource->preferred], ERROR_SUCCESS};
    }
    for (WORD const wish : {language, PRIMARYLANGID(language), WORD{0}})
    {
        auto const found = std::partition_point(
            resource->languages.begin(), resource->languages.end(),
            [&](ResourceData const & data) { return data.language < wish; });
        if (found != resource->languages.end() && found->language == wish)
        {
            return {&*found, ERROR_SUCCESS};
        }
    }
    return {nullptr, ERROR_RESOURCE_LANG_NOT_FOUND};
}

} // namespace kv::platform
