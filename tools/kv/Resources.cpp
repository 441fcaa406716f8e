#include <kvcore/tools/kv/Resources.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <kvcore/files/File.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/DialogOutline.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

constexpr WORD stringType = 6;
constexpr WORD dialogType = 5;
constexpr WORD versionType = 16;

/// A file that is loaded for its resources.
class ResourceModule
{
public:
    explicit ResourceModule(std::string const & typed)
    {
        String path = File::GetFullPath(TypedPath(typed));
        // A last component without a dot would get an extension; one that ends in a dot loses that instead.
        if (path.find('.', path.find_last_of(TEXT("\\/")) + 1) == String::npos)
        {
            path += TEXT(".");
        }
        module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    }
    ResourceModule(ResourceModule const &) = delete;
    ResourceModule & operator=(ResourceModule const &) = delete;
    ~ResourceModule()
    {
        if (module != nullptr)
        {
            FreeLibrary(module);
        }
    }
    operator HMODULE() const
    {
        return module;
    }

private:
    HMODULE module;
};

/// A type or a name: a number, or a text.
struct Id
{
    WORD number = 0;
    WString text;

    WCHAR const * Get() const
    {
        return text.empty() ? MAKEINTRESOURCEW(number) : text.c_str();
    }
    std::string Shown() const
    {
        return text.empty() ? std::to_string(number) : OneLine(String(text).Utf8());
    }
};

Id IdOf(WCHAR const * id)
{
    return IS_INTRESOURCE(id) ? Id{static_cast<WORD>(reinterpret_cast<ULONG_PTR>(id)), {}} : Id{0, id};
}

struct Entry
{
    std::shared_ptr<Id const>
        type; ///< shared by all that have it, like the name: there may be many, and texts are long
    std::shared_ptr<Id const> name;
    WORD language;
    std::string_view data;
};

/// What the callbacks collect into, and the type and the name that they are at.
struct Listing
{
    HMODULE module;
    std::vector<Entry> entries;
    std::shared_ptr<Id const> type;
    std::shared_ptr<Id const> name;
};

BOOL CALLBACK AddLanguage(HMODULE module, WCHAR const * type, WCHAR const * name, WORD language, LONG_PTR argument)
{
    HRSRC const found = FindResourceExW(module, type, name, language);
    if (found != nullptr)
    {
        auto const * const data = static_cast<char const *>(LockResource(LoadResource(module, found)));
        Listing & listing = *reinterpret_cast<Listing *>(argument);
        listing.entries.push_back(
            {listing.type, listing.name, language, std::string_view(data, SizeofResource(module, found))});
    }
    return TRUE;
}

BOOL CALLBACK AddName(HMODULE module, WCHAR const * type, WCHAR * name, LONG_PTR argument)
{
    reinterpret_cast<Listing *>(argument)->name = std::make_shared<Id const>(IdOf(name));
    EnumResourceLanguagesW(module, type, name, AddLanguage, argument);
    return TRUE;
}

BOOL CALLBACK AddType(HMODULE module, WCHAR * type, LONG_PTR argument)
{
    reinterpret_cast<Listing *>(argument)->type = std::make_shared<Id const>(IdOf(type));
    EnumResourceNamesW(module, type, AddName, argument);
    return TRUE;
}

std::vector<Entry> ListResources(HMODULE module)
{
    Listing listing{module, {}, nullptr, nullptr};
    EnumResourceTypesW(module, AddType, reinterpret_cast<LONG_PTR>(&listing));
    return std::move(listing.entries);
}

constexpr struct
{
    WORD number;
    char const * word;
} typeWords[] = {
    {1, "cursor"},      {2, "bitmap"},   {3, "icon"},        {4, "menu"},      {5, "dialog"},    {6, "string"},
    {7, "font-folder"}, {8, "font"},     {9, "accelerator"}, {10, "data"},     {11, "messages"}, {12, "cursor-group"},
    {14, "icon-group"}, {16, "version"}, {23, "html"},       {24, "manifest"},
};

std::string TypeWord(Id const & type)
{
    for (auto const & [number, word] : typeWords)
    {
        if (type.text.empty() && type.number == number)
        {
            return word;
        }
    }
    return type.Shown();
}

std::string LanguageWord(WORD language)
{
    static constexpr struct
    {
        WORD primary;
        char const * word;
    } known[] = {{1, "ar"},    {4, "zh"},    {5, "cs"},    {6, "da"},    {7, "de"},    {8, "el"},
                 {9, "en"},    {0x0A, "es"}, {0x0B, "fi"}, {0x0C, "fr"}, {0x0D, "he"}, {0x0E, "hu"},
                 {0x10, "it"}, {0x11, "ja"}, {0x12, "ko"}, {0x13, "nl"}, {0x14, "no"}, {0x15, "pl"},
                 {0x16, "pt"}, {0x19, "ru"}, {0x1D, "sv"}, {0x1F, "tr"}, {0x22, "uk"}};
    char number[8];
    std::snprintf(number, sizeof(number), "%04x", unsigned{language});
    for (auto const & [primary, word] : known)
    {
        if ((language & 0x3FF) == primary)
        {
            return std::string(number) + " " + word;
        }
    }
    return number;
}

using Row = std::array<std::string, 4>;

Row RowOf(Entry const & entry)
{
    return {
        TypeWord(*entry.type), entry.name->Shown(), LanguageWord(entry.language), std::to_string(entry.data.size())};
}

void PrintList(OutputStream & output, std::vector<Entry> const & entries)
{
    Row const head = {"TYPE", "NAME", "LANGUAGE", "BYTES"};
    std::size_t widths[] = {head[0].size(), head[1].size(), head[2].size()};
    for (Entry const & entry : entries)
    {
        Row const row = RowOf(entry);
        for (std::size_t column = 0; column < std::size(widths); ++column)
        {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    auto const print = [&](Row const & row)
    {
        std::string line;
        for (std::size_t column = 0; column < std::size(widths); ++column)
        {
            line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
        }
        PrintLine(output, line + row.back());
    };
    print(head);
    for (Entry const & entry : entries)
    {
        print(RowOf(entry));
    }
}

/// The strings of a block, which has 16 of them, each a length and as many units.
void PrintStrings(OutputStream & output, Entry const & block)
{
    std::size_t at = 0;
    for (unsigned int i = 0; i < 16 && at + 2 <= block.data.size(); ++i)
    {
        std::uint16_t length = 0;
        std::memcpy(&length, block.data.data() + at, sizeof(length));
        at += sizeof(length);
        std::size_t const bytes = std::min<std::size_t>(length * std::size_t{2}, (block.data.size() - at) / 2 * 2);
        WString text(bytes / 2, 0);
        std::memcpy(text.data(), block.data.data() + at, bytes);
        at += bytes;
        if (!text.empty())
        {
            unsigned int const id = (block.name->number - 1u) * 16 + i;
            PrintLine(output, "  " + std::to_string(id) + "  " + OneLine(String(text).Utf8()));
        }
    }
}

void PrintAllStrings(OutputStream & output, std::vector<Entry> entries)
{
    std::stable_sort(
        entries.begin(), entries.end(),
        [](Entry const & left, Entry const & right) { return left.language < right.language; });
    std::optional<WORD> language;
    for (Entry const & entry : entries)
    {
        if (language != entry.language)
        {
            language = entry.language;
            PrintLine(output, "strings, " + LanguageWord(entry.language));
        }
        PrintStrings(output, entry);
    }
}

void PrintDialog(OutputStream & output, Entry const & entry)
{
    DialogOutline const dialog = ReadDialog(entry.data.data(), entry.data.size());
    PrintLine(
        output,
        "dialog " + entry.name->Shown() + ", " + LanguageWord(entry.language) + ", " + std::to_string(dialog.width) +
            " x " + std::to_string(dialog.height) + " at " + std::to_string(dialog.x) + "," + std::to_string(dialog.y) +
            (dialog.font.empty() ? "" : ", " + OneLine(dialog.font) + " " + std::to_string(dialog.pointSize)));
    Print(output, std::string_view(DrawDialog(dialog)));
}

std::string Dotted(DWORD high, DWORD low)
{
    return std::to_string(high >> 16) + "." + std::to_string(high & 0xFFFF) + "." + std::to_string(low >> 16) + "." +
        std::to_string(low & 0xFFFF);
}

/// The texts that version blocks have, by the names that all of them use.
void PrintVersionTexts(OutputStream & output, void const * block, std::string const & language)
{
    static constexpr char const * names[] = {"CompanyName",    "FileDescription", "FileVersion",      "InternalName",
                                             "LegalCopyright", "LegalTrademarks", "OriginalFilename", "ProductName",
                                             "ProductVersion", "Comments",        "PrivateBuild",     "SpecialBuild"};
    for (char const * const name : names)
    {
        String const path = String::FromUtf8("\\StringFileInfo\\" + language + "\\" + name);
        void * value = nullptr;
        UINT length = 0;
        if (VerQueryValueW(block, path.c_str(), &value, &length) && length > 1)
        {
            WString text(length - 1, 0);
            std::memcpy(text.data(), value, text.size() * sizeof(WCHAR));
            PrintLine(output, "  " + std::string(name) + ": " + OneLine(String(text).Utf8()));
        }
    }
}

/// A block whose own length says no more than is there, as VerQueryValueW goes by that.
std::vector<std::uint32_t> SafeBlock(std::string_view data)
{
    std::size_t const size = std::min<std::size_t>(data.size(), 0xFFFF);
    std::vector<std::uint32_t> block(size / 4 + 2);
    std::memcpy(block.data(), data.data(), size);
    std::uint16_t stated = 0;
    std::memcpy(&stated, block.data(), sizeof(stated));
    stated = std::min(stated, static_cast<std::uint16_t>(size));
    std::memcpy(block.data(), &stated, sizeof(stated));
    return block;
}

void PrintVersion(OutputStream & output, Entry const & entry)
{
    PrintLine(output, "version " + entry.name->Shown() + ", " + LanguageWord(entry.language));
    std::vector<std::uint32_t> const block = SafeBlock(entry.data);
    void * value = nullptr;
    UINT length = 0;
    if (VerQueryValueW(block.data(), TEXT("\\"), &value, &length) && length >= sizeof(VS_FIXEDFILEINFO))
    {
        VS_FIXEDFILEINFO fixed;
        std::memcpy(&fixed, value, sizeof(fixed));
        PrintLine(output, "  file     " + Dotted(fixed.dwFileVersionMS, fixed.dwFileVersionLS));
        PrintLine(output, "  product  " + Dotted(fixed.dwProductVersionMS, fixed.dwProductVersionLS));
    }
    if (!VerQueryValueW(block.data(), TEXT("\\VarFileInfo\\Translation"), &value, &length))
    {
        return;
    }
    for (UINT at = 0; at + 4 <= length; at += 4)
    {
        std::uint16_t translation[2];
        std::memcpy(translation, static_cast<char const *>(value) + at, sizeof(translation));
        char language[16];
        std::snprintf(language, sizeof(language), "%04x%04x", unsigned{translation[0]}, unsigned{translation[1]});
        PrintLine(output, "  texts " + LanguageWord(translation[0]));
        PrintVersionTexts(output, block.data(), language);
    }
}

std::vector<Entry> Chosen(std::vector<Entry> const & entries, WORD type, std::string const & language)
{
    std::vector<Entry> chosen;
    std::copy_if(
        entries.begin(), entries.end(), std::back_inserter(chosen),
        [&](Entry const & entry)
        {
            return entry.type->text.empty() && entry.type->number == type &&
                (language.empty() || LanguageWord(entry.language).compare(0, 4, language) == 0);
        });
    return chosen;
}

/// The entry that "TYPE/NAME" or "TYPE/NAME/LANGUAGE" means; the first one if the language is left open.
std::optional<Entry> FindEntry(std::vector<Entry> const & entries, std::string const & wanted)
{
    for (Entry const & entry : entries)
    {
        for (std::string const & type : {TypeWord(*entry.type), entry.type->Shown()})
        {
            std::string const name = type + "/" + entry.name->Shown();
            if (wanted == name || wanted == name + "/" + LanguageWord(entry.language).substr(0, 4))
            {
                return entry;
            }
        }
    }
    return std::nullopt;
}

int Extract(std::vector<Entry> const & entries, ResourcesOptions const & options, Console & console)
{
    auto const entry = FindEntry(entries, options.extract);
    if (!entry)
    {
        Complain(console, "kv resources", options.file + ": there is no resource " + options.extract);
        return ExitFailed;
    }
    NamedOutput output(options.output.empty() ? "-" : options.output, console);
    Print(output, entry->data);
    output.Finish();
    return ExitOk;
}

} // namespace

int ShowResources(ResourcesOptions const & options, Console & console)
{
    ResourceModule const module(options.file);
    if (module == nullptr)
    {
        DWORD const error = GetLastError();
        Complain(
            console, "kv resources",
            options.file + ": " +
                (error == ERROR_BAD_EXE_FORMAT ? "no program or library"
                                               : String::FromError(static_cast<LONG>(error)).Utf8()));
        return ExitFailed;
    }
    std::vector<Entry> const entries = ListResources(module);
    if (!options.extract.empty())
    {
        return Extract(entries, options, console);
    }
    NamedOutput output("-", console);
    if (!options.strings && !options.dialogs && !options.version)
    {
        PrintList(output, entries);
    }
    if (options.strings)
    {
        PrintAllStrings(output, Chosen(entries, stringType, options.language));
    }
    for (Entry const & entry : Chosen(entries, dialogType, options.language))
    {
        if (options.dialogs)
        {
            PrintDialog(output, entry);
        }
    }
    for (Entry const & entry : Chosen(entries, versionType, options.language))
    {
        if (options.version)
        {
            PrintVersion(output, entry);
        }
    }
    output.Finish();
    return ExitOk;
}

} // namespace kv::tools
