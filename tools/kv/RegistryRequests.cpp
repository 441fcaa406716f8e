#include <kvcore/tools/kv/RegistryRequests.h>

#include <kvcore/tools/kv/RegistryData.h>
#include <kvcore/tools/kv/SumList.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Printable.h>
#include <kvcore/tools/support/Text.h>

namespace kv::tools
{

RegistryPath TypedRegistryPath(std::string const & typed)
{
    try
    {
        return RegistryPath(String::FromUtf8(typed));
    }
    catch (BadRegistryPath const & bad)
    {
        throw UsageError(bad.what());
    }
}

int NoRegistryKey(RegistryPath const & path, Console & console)
{
    Complain(console, registryCommand, "there is no key " + RegistryLine(path.Shown()));
    return ExitFailed;
}

int NoRegistryValue(RegistryPath const & path, std::string const & name, Console & console)
{
    std::string const value = name.empty() ? "default value" : "value \"" + RegistryLine(String::FromUtf8(name)) + "\"";
    Complain(console, registryCommand, "there is no " + value + " in " + RegistryLine(path.Shown()));
    return ExitFailed;
}

bool IsConfirmed(std::string_view question, Console & console)
{
    if (!console.asks)
    {
        throw UsageError("standard input is not a terminal, so kv cannot ask; --yes does it without asking");
    }
    Print(console.error, Printable(question) + " [y/N] ");
    LineReader reader(console.input);
    std::string answer;
    if (!reader.Next(answer))
    {
        return false;
    }
    if (!answer.empty() && answer.back() == '\r')
    {
        answer.pop_back();
    }
    return answer == "y" || answer == "Y" || answer == "yes";
}

int WalkRegistryAloud(RegistryKey root, std::size_t depth, Console & console, RegistryVisitor const & visit)
{
    int result = ExitOk;
    WalkRegistry(
        std::move(root), depth, visit,
        [&](RegistryFailure const & failure)
        {
            Complain(console, registryCommand, failure.subject + ": " + failure.text.Utf8());
            result = ExitFailed;
        });
    return result;
}

} // namespace kv::tools
