#include <algorithm>
#include <chrono>
#include <map>

#include <kvcore/platform/win32.h>
#include <kvcore/tools/kv/NamedStreams.h>
#include <kvcore/tools/kv/RegistryData.h>
#include <kvcore/tools/kv/RegistryRequests.h>
#include <kvcore/tools/support/ExitCodes.h>
#include <kvcore/tools/support/Text.h>

// Changes as they come: watch.

namespace kv::tools
{

namespace
{

/// What a key holds, by name.
using Values = std::map<String, RegistryValue>;
/// Keys by their whole paths.
using Snapshot = std::map<String, Values>;

/// An event that is set by one change, and no more once it was waited for.
class ChangeEvent
{
public:
    ChangeEvent() : event(CreateEventW(nullptr, FALSE, FALSE, nullptr))
    {
        if (event == nullptr)
        {
            throw RegistryFailure(GetLastError(), "cannot watch the registry");
        }
    }
    ChangeEvent(ChangeEvent const &) = delete;
    ~ChangeEvent()
    {
        CloseHandle(event);
    }

    /// Has the next change from now on set the event. False if the key is gone.
    [[nodiscard]] bool Arm(RegistryKey const & key) const
    {
        auto const code = static_cast<DWORD>(RegNotifyChangeKeyValue(
            key.Handle(), TRUE, REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET, event, TRUE));
        if (code != ERROR_SUCCESS && code != ERROR_KEY_DELETED)
        {
            throw RegistryFailure(code, "cannot watch " + key.Path().Utf8());
        }
        return code == ERROR_SUCCESS;
    }
    /// False if the time is over.
    [[nodiscard]] bool Wait(DWORD milliseconds) const
    {
        return WaitForSingleObject(event, milliseconds) == WAIT_OBJECT_0;
    }

private:
    HANDLE event;
};

/// Prints what differs between two looks, a line for each key and value.
class ChangeList
{
public:
    ChangeList(RegistryRequest const & asked, Console & console) : request(asked), output("-", console) {}

    void Print(Snapshot const & before, Snapshot const & after)
    {
        for (auto const & [path, values] : before)
        {
            if (!after.contains(path))
            {
                PrintKey('-', path);
            }
        }
        for (auto const & [path, values] : after)
        {
            auto const old = before.find(path);
            if (old == before.end())
            {
                PrintKey('+', path);
            }
            PrintValues(path, old == before.end() ? Values() : old->second, values);
        }
        output.Finish();
    }
    /// Whether as many were printed as were asked for.
    [[nodiscard]] bool IsFull() const
    {
        return request.count != 0 && printed >= request.count;
    }

private:
    void PrintValues(String const & path, Values const & before, Values const & after)
    {
        for (auto const & [name, value] : before)
        {
            if (!after.contains(name))
            {
                PrintItem('-', path, value);
            }
        }
        for (auto const & [name, value] : after)
        {
            auto const old = before.find(name);
            if (old == before.end())
            {
                PrintItem('+', path, value);
            }
            else if (old->second.type != value.type || old->second.data != value.data)
            {
                PrintItem('=', path, value);
            }
        }
    }
    void PrintKey(char sign, String const & path)
    {
        PrintText(sign, request.tabs ? RegistryField(path) : RegistryLine(path));
    }
    void PrintItem(char sign, String const & path, RegistryValue const & value)
    {
        bool const isGone = sign == '-';
        std::string text;
        if (request.tabs)
        {
            text = RegistryField(path) + '\t' + RegistryField(value.name);
            text += isGone ? "" : '\t' + RegistryTypeName(value.type) + '\t' + RegistryField(RegistryDataText(value));
        }
        else
        {
            std::string const name = value.name.empty() ? "(Default)" : RegistryLine(value.name);
            text = RegistryLine(path) + "    " + (isGone ? name : RegistryValueLine(value));
        }
        PrintText(sign, text);
    }
    void PrintText(char sign, std::string const & text)
    {
        if (!IsFull())
        {
            PrintLine(output, std::string_view(std::string(1, sign) + (request.tabs ? '\t' : ' ') + text));
            ++printed;
        }
    }

    RegistryRequest const & request;
    NamedOutput output;
    std::size_t printed = 0;
};

Snapshot Look(RegistryPath const & path)
{
    Snapshot snapshot;
    std::optional<RegistryKey> key = OpenRegistryKey(path, KEY_READ);
    if (key)
    {
        // Keys that may not be read are not watched.
        WalkRegistry(
            std::move(*key), ~std::size_t(0),
            [&](RegistryKey const & visited, std::size_t)
            {
                Values & values = snapshot[visited.Path()];
                for (RegistryValue & value : visited.Values())
                {
                    String const name = value.name;
                    values.emplace(name, std::move(value));
                }
            },
            [](RegistryFailure const &) {});
    }
    return snapshot;
}

using Time = std::chrono::steady_clock::time_point;

bool IsDeleted(RegistryKey const & key)
{
    DWORD count = 0;
    return RegQueryInfoKeyW(
               key.Handle(), nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
               nullptr) == static_cast<LSTATUS>(ERROR_KEY_DELETED);
}

/// Waits for a change, for the key's end, of which not every system tells, or until `end`, which is never if there is
/// none. False if that came first.
bool WaitForChange(ChangeEvent const & event, RegistryKey const & key, std::optional<Time> const & end)
{
    constexpr long long slice = 250; // milliseconds
    for (;;)
    {
        long long left = slice;
        if (end)
        {
            left = std::chrono::ceil<std::chrono::milliseconds>(*end - std::chrono::steady_clock::now()).count();
        }
        if (event.Wait(static_cast<DWORD>(std::clamp<long long>(left, 0, slice))) || IsDeleted(key))
        {
            return true;
        }
        if (end && left <= slice)
        {
            return false;
        }
    }
}

} // namespace

int WatchRegistry(RegistryRequest const & request, Console & console)
{
    RegistryPath const path = TypedRegistryPath(request.key);
    std::optional<RegistryKey> const key = OpenRegistryKey(path, KEY_READ);
    ChangeEvent const event;
    if (!key || !event.Arm(*key))
    {
        return NoRegistryKey(path, console);
    }
    std::optional<Time> end;
    if (request.seconds)
    {
        std::chrono::duration<double> const time(*request.seconds);
        end = std::chrono::steady_clock::now() + std::chrono::ceil<std::chrono::steady_clock::duration>(time);
    }
    ChangeList list(request, console);
    Snapshot before = Look(path);
    Complain(console, registryCommand, "watching " + RegistryLine(path.Shown()));
    while (WaitForChange(event, *key, end))
    {
        // Armed anew before the look, so that no change falls between.
        bool const isThere = !IsDeleted(*key) && event.Arm(*key);
        Snapshot after = Look(path);
        list.Print(before, after);
        if (list.IsFull())
        {
            return ExitOk;
        }
        if (!isThere)
        {
            return NoRegistryKey(path, console);
        }
        before = std::move(after);
    }
    return request.count == 0 ? ExitOk : ExitFailed;
}

} // namespace kv::tools
