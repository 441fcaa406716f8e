#include <kvcore/tools/kv/commands/Command.h>

#include <array>
#include <memory>
#include <vector>

#include <kvcore/files/File.h>
#include <kvcore/files/FileStreams.h>
#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/ProfileSections.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Paths.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

namespace
{

/// What was asked for on the command line.
struct IniArguments
{
    std::string file;
    std::string action;
    std::array<std::string, 3> typed;
    std::vector<std::string> names; ///< of section and key, and the value
    std::string section;
    bool sectionGiven = false;
    bool tabs = false;
};

/// A profile as the platform's calls know it, by its whole path: one without a folder would mean another directory.
class Profile
{
public:
    explicit Profile(std::string const & typed) : path(File::GetFullPath(TypedPath(typed))) {}

    void RequireFile() const
    {
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
        {
            Fail("cannot read");
        }
    }

    /// False if there is no such key.
    bool Get(String const & section, String const & key, String & value) const
    {
        // Only a key that is missing gives back two different fallbacks.
        String other;
        value = Text(section, key, TEXT("0"));
        other = Text(section, key, TEXT("1"));
        return value == other;
    }
    void Set(String const & section, String const & key, WCHAR const * value) const
    {
        if (!WritePrivateProfileStringW(section.c_str(), key.c_str(), value, path.c_str()))
        {
            Fail("cannot write");
        }
    }
    void Remove(String const & section) const
    {
        if (!WritePrivateProfileStringW(section.c_str(), nullptr, nullptr, path.c_str()))
        {
            Fail("cannot write");
        }
    }
    std::vector<ProfileSection> Sections() const
    {
        // Says what keeps the platform from reading the file.
        (void)Whole(
            2, [this](WCHAR * list, DWORD room) { return GetPrivateProfileSectionNamesW(list, room, path.c_str()); });
        try
        {
            BasicFileStream file(
                path, FileAccess_Read, FileShare_Read | FileShare_Write | FileShare_Delete, FileCreation_OpenExisting,
                FileAttributes_SequentialScan);
            std::string bytes;
            file.Read(bytes);
            return ReadProfileSections(bytes);
        }
        catch (BasicFileStream::Exception const & failure)
        {
            throw IoFailure(failure, "cannot read " + ShownPath(path));
        }
    }

private:
    [[noreturn]] void Fail(char const * what) const
    {
        StreamBase::Exception const cause{1, String::FromError(GetLastError())};
        throw IoFailure(cause, std::string(what) + " " + ShownPath(path));
    }

    /// Calls for a text of any length: `reserve` elements less than the room is the length of one that was cut.
    template <class Call>
    String Whole(DWORD reserve, Call && call) const
    {
        constexpr std::size_t most = std::size_t(1) << 28;
        for (std::size_t room = 4096;; room *= 8)
        {
            std::vector<WCHAR> buffer(room);
            SetLastError(ERROR_SUCCESS);
            DWORD const length = call(buffer.data(), static_cast<DWORD>(room));
            DWORD const error = GetLastError();
            bool const cut = length == room - reserve;
            if (length == 0 && error != ERROR_SUCCESS && error != ERROR_MORE_DATA)
            {
                Fail("cannot read");
            }
            if (!cut || room >= most)
            {
                return String(buffer.data(), static_cast<unsigned int>(length));
            }
        }
    }
    String Text(String const & section, String const & key, WCHAR const * fallback) const
    {
        return Whole(
            1,
            [&](WCHAR * text, DWORD room)
            { return GetPrivateProfileStringW(section.c_str(), key.c_str(), fallback, text, room, path.c_str()); });
    }

    String path;
};

/// A value as `get` gives it: without the quotes that keep its blanks.
String Unquoted(String const & value)
{
    bool const quoted =
        value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return quoted ? String(value.substr(1, value.size() - 2)) : value;
}

/// A value as the file holds it, so that `get` gives it back: in quotes where blanks or quotes would else be lost.
String Quoted(String const & value)
{
    auto const isBlank = [](WCHAR c) { return c == ' ' || c == '\t'; };
    bool const blanks = !value.empty() && (isBlank(value.front()) || isBlank(value.back()));
    return blanks || Unquoted(value) != value ? String(TEXT("\"") + value + TEXT("\"")) : value;
}

String NameFrom(std::string const & typed, char const * what)
{
    String const name = String::FromUtf8(typed);
    if (name.find_first_of(TEXT("\r\n")) != String::npos)
    {
        throw UsageError(std::string(what) + " cannot have a line break");
    }
    return name;
}

String KeyFrom(std::string const & typed)
{
    String const key = NameFrom(typed, "a key");
    if (key.empty() || key[0] == ';' || key[0] == '[' || key.find('=') != String::npos)
    {
        throw UsageError("a key cannot be empty, begin with ';' or '[', or have a '='; this is \"" + typed + "\"");
    }
    return key;
}

/// A field of a line of several: what separates fields and lines is spelled.
std::string Field(String const & text)
{
    std::string field;
    for (char const c : text.Utf8())
    {
        field += c == '\t' ? "\\t" : c == '\\' ? "\\\\" : std::string(1, c);
    }
    return field;
}

void PrintSection(ProfileSection const & section, bool tabs, OutputStream & output)
{
    if (!tabs)
    {
        PrintLine(output, Printable('[' + section.name.Utf8() + ']'));
    }
    for (auto const & [key, quoted] : section.entries)
    {
        String const value = Unquoted(quoted);
        PrintLine(
            output,
            tabs ? Field(section.name) + '\t' + Field(key) + '\t' + Field(value)
                 : Printable(key.Utf8() + '=' + value.Utf8(), Backslashes::Kept, Spaces::Tabs));
    }
}

int List(Profile const & profile, IniArguments const & arguments, Console & console)
{
    profile.RequireFile();
    NamedOutput output("-", console);
    std::vector<ProfileSection> sections = profile.Sections();
    if (!arguments.names.empty())
    {
        String const asked = NameFrom(arguments.names[0], "a section");
        std::erase_if(
            sections,
            [&](ProfileSection const & section)
            {
                return CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, section.name.c_str(), -1, asked.c_str(), -1) !=
                    CSTR_EQUAL;
            });
        if (sections.empty())
        {
            Complain(console, "kv ini", "there is no section \"" + arguments.names[0] + "\"");
            return ExitFailed;
        }
        sections.resize(1);
    }
    for (ProfileSection const & section : sections)
    {
        PrintSection(section, arguments.tabs, output);
    }
    output.Finish();
    return ExitOk;
}

int Get(Profile const & profile, IniArguments const & arguments, Console & console)
{
    profile.RequireFile();
    String value;
    if (!profile.Get(NameFrom(arguments.names[0], "a section"), KeyFrom(arguments.names[1]), value))
    {
        Complain(console, "kv ini", "there is no key \"" + arguments.names[1] + "\" in [" + arguments.names[0] + "]");
        return ExitFailed;
    }
    NamedOutput output("-", console);
    PrintLine(output, std::string_view(Presented(console, value.Utf8())));
    output.Finish();
    return ExitOk;
}

int Set(Profile const & profile, IniArguments const & arguments, Console &)
{
    String const value = NameFrom(arguments.names[2], "a value");
    profile.Set(NameFrom(arguments.names[0], "a section"), KeyFrom(arguments.names[1]), Quoted(value).c_str());
    return ExitOk;
}

int Remove(Profile const & profile, IniArguments const & arguments, Console & console)
{
    profile.RequireFile();
    String const section = NameFrom(arguments.names[0], "a section");
    if (arguments.names.size() == 1)
    {
        profile.Remove(section);
        return ExitOk;
    }
    String const key = KeyFrom(arguments.names[1]);
    String value;
    if (!profile.Get(section, key, value))
    {
        Complain(console, "kv ini", "there is no key \"" + arguments.names[1] + "\" in [" + arguments.names[0] + "]");
        return ExitFailed;
    }
    profile.Set(section, key, nullptr);
    return ExitOk;
}

struct IniAction
{
    char const * name;
    std::size_t fewest;
    std::size_t most;
    char const * arguments;
    int (*run)(Profile const &, IniArguments const &, Console &);
};

constexpr IniAction iniActions[] = {
    {"get", 2, 2, "SECTION KEY", Get},
    {"set", 3, 3, "SECTION KEY VALUE", Set},
    {"list", 0, 1, "[SECTION]", List},
    {"remove", 1, 2, "SECTION [KEY]", Remove},
};

int Ini(IniArguments arguments, Console & console)
{
    for (IniAction const & action : iniActions)
    {
        if (arguments.action != action.name)
        {
            continue;
        }
        if (arguments.sectionGiven)
        {
            arguments.names.insert(arguments.names.begin(), arguments.section);
        }
        if (arguments.names.size() < action.fewest || arguments.names.size() > action.most)
        {
            throw UsageError(std::string("it is kv ini FILE ") + action.name + " " + action.arguments);
        }
        return action.run(Profile(arguments.file), arguments, console);
    }
    throw UsageError("unknown action '" + arguments.action + "'; known are get, set, list and remove");
}

} // namespace

Command AddIniCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<IniArguments>();
    CLI::App * const ini = program.add_subcommand("ini", "Read and change settings in a profile (INI) file");
    ini->add_option("FILE", arguments->file, "The file; set makes one that is missing")->required();
    ini->add_option("ACTION", arguments->action, "get, set, list or remove")->required();
    // One option each: a list would take "[x]" for one of its own.
    std::vector<CLI::Option const *> names;
    for (std::size_t i = 0; i < arguments->typed.size(); i++)
    {
        constexpr char const * shown[] = {"SECTION", "KEY", "VALUE"};
        constexpr char const * meanings[] = {
            "The section; not for list of all", "The key; not for list and remove of a section", "The value; for set"};
        names.push_back(ini->add_option(shown[i], arguments->typed[i], meanings[i]));
    }
    ini->allow_extras();
    CLI::Option const * const section =
        ini->add_option("-s,--section", arguments->section, "The section; KEY is then the first name")
            ->type_name("SECTION");
    ini->add_flag(
        "-t,--tabs", arguments->tabs, "list: a line of section, key and value for each key, separated\nby tabs");
    ini->footer(
        std::string("Names are found in any case. Comments and all lines that are not concerned stay as\n"
                    "they are. Values with blanks at their ends are kept in quotes, and shown without.\n"
                    "A key that is not there is exit code 1.\n\n"
                    "Examples:\n"
                    "  kv ini app.ini set window width 800\n"
                    "  kv ini app.ini get window width\n"
                    "  kv ini app.ini list --tabs\n"
                    "  kv ini app.ini remove window\n\n") +
        exitCodesHelp);
    return {
        ini,
        [arguments, section, ini, names](Console & console)
        {
            for (std::size_t i = 0; i < names.size() && names[i]->count() > 0; i++)
            {
                arguments->names.push_back(arguments->typed[i]);
            }
            // A value may begin with a dash: what the grammar does not know stands behind the names.
            for (std::string const & extra : ini->remaining())
            {
                if (extra != "--")
                {
                    arguments->names.push_back(extra);
                }
            }
            arguments->sectionGiven = section->count() > 0;
            return Ini(*arguments, console);
        }};
}

} // namespace kv::tools
