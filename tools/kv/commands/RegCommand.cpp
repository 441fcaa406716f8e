#include <kvcore/tools/kv/commands/Command.h>

#include <algorithm>
#include <array>
#include <memory>

#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/kv/Registry.h>

namespace kv::tools
{

namespace
{

constexpr std::size_t allLevels = ~std::size_t(0);

/// What was typed, as far as it does not go into the request at once.
struct RegArguments
{
    RegistryRequest request;
    std::string action;
    std::array<std::string, 32> typed;
    std::vector<std::string> words; ///< behind the action
    std::string value;
    std::vector<std::string> data;
    bool isNamed = false;
    bool isDefault = false;
    bool subkeys = false;
    bool depthGiven = false;
};

/// The words of an action that are no data.
enum class Names
{
    Key,
    KeyAndValue,
    KeyAndFile,
    File,
};

struct RegAction
{
    char const * name;
    char const * other; ///< what the platform's own tool calls it
    Names names;
    bool takesData;
    char const * arguments;
    int (*run)(RegistryRequest const &, Console &);
};

constexpr RegAction regActions[] = {
    {"list", "", Names::Key, false, "KEY", ListRegistry},
    {"query", "", Names::KeyAndValue, false, "KEY [NAME]", QueryRegistry},
    {"get", "", Names::KeyAndValue, false, "KEY [NAME]", GetFromRegistry},
    {"set", "add", Names::KeyAndValue, true, "KEY [NAME [DATA...]]", SetInRegistry},
    {"delete", "", Names::KeyAndValue, false, "KEY [NAME]", DeleteFromRegistry},
    {"export", "", Names::KeyAndFile, false, "KEY [FILE]", ExportRegistry},
    {"import", "", Names::File, false, "[FILE]", ImportRegistry},
    {"watch", "", Names::Key, false, "KEY", WatchRegistry},
};

RegAction const & FindAction(std::string const & name)
{
    for (RegAction const & action : regActions)
    {
        if (name == action.name || (!name.empty() && name == action.other))
        {
            return action;
        }
    }
    throw UsageError(
        "unknown action '" + name + "'; known are list, query, get, set, delete, export, import and watch");
}

/// Takes the switches of the platform's own tool, a slash and a word, out of the words.
class Switches
{
public:
    explicit Switches(RegArguments & typed) : arguments(typed) {}

    void Take()
    {
        std::vector<std::string> others;
        for (next = 0; next < arguments.words.size();)
        {
            std::string const & word = arguments.words[next++];
            if (!TakeOne(word))
            {
                others.push_back(word);
            }
        }
        arguments.words = std::move(others);
    }

private:
    bool TakeOne(std::string const & word)
    {
        bool const isSet = FindAction(arguments.action).takesData;
        if (Is(word, "/v"))
        {
            arguments.isNamed = true;
            arguments.value = Behind(word);
        }
        else if (Is(word, "/t") && isSet)
        {
            arguments.request.type = Behind(word);
        }
        else if (Is(word, "/d") && isSet)
        {
            arguments.data.push_back(Behind(word));
        }
        else if (Is(word, "/s") && isSet)
        {
            arguments.request.separator = Behind(word);
        }
        else
        {
            return TakeFlag(word);
        }
        return true;
    }
    bool TakeFlag(std::string const & word)
    {
        struct
        {
            char const * name;
            bool & flag;
        } const flags[] = {
            {"/ve", arguments.isDefault},   {"/va", arguments.request.allValues}, {"/s", arguments.subkeys},
            {"/f", arguments.request.sure}, {"/y", arguments.request.sure},
        };
        auto const * const found =
            std::find_if(std::begin(flags), std::end(flags), [&](auto const & flag) { return Is(word, flag.name); });
        if (found == std::end(flags))
        {
            return false;
        }
        found->flag = true;
        return true;
    }
    static bool Is(std::string const & word, std::string_view name)
    {
        return std::equal(
            word.begin(), word.end(), name.begin(), name.end(),
            [](char a, char b) { return a == b || (a >= 'A' && a <= 'Z' && (a | 0x20) == b); });
    }
    std::string Behind(std::string const & word)
    {
        if (next == arguments.words.size())
        {
            throw UsageError(word + " needs a value");
        }
        return arguments.words[next++];
    }

    RegArguments & arguments;
    std::size_t next = 0;
};

/// Gives each word its meaning.
RegistryRequest RequestOf(RegAction const & action, RegArguments & arguments)
{
    RegistryRequest request = arguments.request;
    std::vector<std::string> words = arguments.words;
    auto const take = [&words]
    {
        std::string const word = words.front();
        words.erase(words.begin());
        return word;
    };
    UsageError const wrong(std::string("it is kv reg ") + action.name + " " + action.arguments);
    if (action.names != Names::File)
    {
        if (words.empty())
        {
            throw wrong;
        }
        request.key = take();
    }
    if (arguments.isNamed || arguments.isDefault)
    {
        request.name = arguments.isDefault ? "" : arguments.value;
    }
    else if (action.names == Names::KeyAndValue && !words.empty() && !request.allValues)
    {
        request.name = take();
    }
    if ((action.names == Names::KeyAndFile || action.names == Names::File) && !words.empty())
    {
        request.file = take();
    }
    request.data = arguments.data;
    if (action.takesData)
    {
        request.data.insert(request.data.end(), words.begin(), words.end());
        words.clear();
    }
    bool const isNameWanted = action.names == Names::KeyAndValue;
    if (!words.empty() || (request.name && !isNameWanted) || (!request.name && !request.data.empty()))
    {
        throw wrong;
    }
    bool const isQuery = action.run == QueryRegistry;
    if (!arguments.depthGiven)
    {
        request.depth = isQuery && !arguments.subkeys ? 0 : allLevels;
    }
    return request;
}

/// `unknown` is what the grammar made nothing of, and the mark in front of words that begin with a dash.
int Reg(RegArguments arguments, std::vector<std::string> const & unknown, Console & console)
{
    bool isMarked = false;
    for (std::string const & word : unknown)
    {
        if (!isMarked && word == "--")
        {
            isMarked = true;
            continue;
        }
        if (!isMarked && word.starts_with("-"))
        {
            throw UsageError("no option is called " + word + "; -- stands before words that begin so");
        }
        arguments.words.push_back(word);
    }
    if (!isMarked)
    {
        Switches(arguments).Take();
    }
    RegAction const & action = FindAction(arguments.action);
    return action.run(RequestOf(action, arguments), console);
}

/// One argument for each word: a list would take "[x]" for one of its own. The first are shown in the help.
std::vector<CLI::Option const *> AddWords(CLI::App & reg, RegArguments & arguments)
{
    constexpr char const * shown[][2] = {
        {"KEY", "The key; import has the file here"},
        {"NAME", "The value's name; export has the file here"},
        {"DATA", "The data; of a REG_MULTI_SZ several"}};
    std::vector<CLI::Option const *> words;
    for (auto const & [name, meaning] : shown)
    {
        words.push_back(reg.add_option(name, arguments.typed[words.size()], meaning));
    }
    while (words.size() < arguments.typed.size())
    {
        std::string & place = arguments.typed[words.size()];
        words.push_back(reg.add_option("DATA" + std::to_string(words.size()), place)->group(""));
    }
    return words;
}

void AddOptions(CLI::App & reg, RegArguments & arguments)
{
    RegistryRequest & request = arguments.request;
    reg.add_option("-v,--value", arguments.value, "The value's name; NAME is then left out")->type_name("NAME");
    reg.add_flag("--ve", arguments.isDefault, "The key's default value, instead of NAME");
    reg.add_flag("--va", request.allValues, "delete: all values of the key, which stays");
    reg.add_option("-t,--type", request.type, "set: the type, REG_SZ if left out")->type_name("TYPE");
    reg.add_option("-d,--data", arguments.data, "set: the data, instead of DATA")
        ->type_name("DATA")
        ->allow_extra_args(false);
    reg.add_option(
           "--separator", request.separator, "set: between texts of a REG_MULTI_SZ in one word,\n\\0 if left out")
        ->type_name("TEXT");
    reg.add_option("--depth", request.depth, "list, query: only so many levels below the key")->type_name("N");
    reg.add_flag("-s,--subkeys", arguments.subkeys, "query: the keys below it, too");
    reg.add_flag("--tabs", request.tabs, "list, watch: key, name, type and data between tabs");
    reg.add_flag("--raw", request.raw, "get: the data as its bytes");
    reg.add_flag("-y,--yes", request.sure, "delete, export: do not ask");
    reg.add_flag("-n,--dry-run", request.dryRun, "import: read the file, and change nothing");
    reg.add_option("--count", request.count, "watch: end with this many changes")->type_name("N");
    reg.add_option_function<double>(
           "--for", [&request](double seconds) { request.seconds = seconds; }, "watch: end after this time")
        ->type_name("SECONDS")
        ->check(CLI::Validator(CLI::Range(0.0, 1e6)).description(""));
}

constexpr char const * helpText =
    R"(Actions:
  list KEY                 a key and what is below it, as a tree
  query KEY [NAME]         a key's values and the names of keys below, or one value
  get KEY [NAME]           a value's data alone
  set KEY [NAME [DATA]]    makes the key, and sets the value
  delete KEY [NAME]        deletes a key with all that is below it, or a value
  export KEY [FILE]        writes a key and all below it as a registry file (.reg)
  import [FILE]            does what such a file says
  watch KEY                shows changes in a key and below it, until interrupted

KEY begins with HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_USERS or
HKEY_CURRENT_CONFIG, or HKCU, HKLM, HKCR, HKU, HKCC; \\MACHINE\ may stand before. Shells
want backslashes in quotes. Without NAME it is the default value. The switches of the
platform's own tool do the same here: /v /ve /va /t /d /s /f /y, and the action add.

Types are REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ (each DATA is one text), REG_DWORD and
REG_QWORD (decimal, or 0x and hexadecimal digits), REG_BINARY and REG_NONE (hexadecimal
digits, 01a0ff), and numbers of others; REG_ may be left out.

A registry file that cannot be read whole changes nothing, and the message tells file,
line and reason. A key or value that is not there is exit code 1.

Examples:
  kv reg set "HKCU\Software\Example" width 800 -t dword
  kv reg get "HKCU\Software\Example" width
  kv reg list "HKCU\Software\Example" --depth 1
  kv reg delete "HKCU\Software\Example" width
  kv reg export "HKCU\Software\Example" example.reg
  kv reg import example.reg --dry-run
  kv reg watch "HKCU\Software\Example" --count 1

)";

} // namespace

Command AddRegCommand(CLI::App & program)
{
    auto const arguments = std::make_shared<RegArguments>();
    arguments->request.separator = "\\0";
    CLI::App * const reg = program.add_subcommand("reg", "Show and change the registry, and its files");
    reg->add_option("ACTION", arguments->action, "What to do, see below")->required();
    std::vector<CLI::Option const *> const words = AddWords(*reg, *arguments);
    reg->allow_extras();
    AddOptions(*reg, *arguments);
    CLI::Option const * const value = reg->get_option("--value");
    CLI::Option const * const data = reg->get_option("--data");
    CLI::Option const * const depth = reg->get_option("--depth");
    reg->footer(std::string(helpText) + exitCodesHelp);
    return {
        reg,
        [=](Console & console)
        {
            arguments->words.clear();
            for (CLI::Option const * const word : words)
            {
                arguments->words.insert(arguments->words.end(), word->results().begin(), word->results().end());
            }
            arguments->data = data->results();
            arguments->isNamed = value->count() > 0;
            arguments->depthGiven = depth->count() > 0;
            return Reg(*arguments, reg->remaining(), console);
        }};
}

} // namespace kv::tools
