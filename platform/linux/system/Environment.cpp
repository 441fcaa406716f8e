#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/processenv.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/text/Utf8.h>
#include <kvcore/platform/types.h>

using namespace kv::platform;

namespace
{

/// Lives for ever.
std::mutex & EnvironmentLock()
{
    static std::mutex & lock = *new std::mutex;
    return lock;
}

WString FromNative(std::string_view text)
{
    WString result(CountUtf8AsUtf16(text.data(), text.size()).length, 0);
    DecodeUtf8(text.data(), text.size(), result.data(), result.size());
    return result;
}

std::string ToNative(WString const & text)
{
    std::string result(CountUtf16AsUtf8(text.data(), text.size()).length, 0);
    EncodeUtf8(text.data(), text.size(), result.data(), result.size());
    return result;
}

WString Upper(WString const & text)
{
    int const length = static_cast<int>(text.size());
    WString result(text.size(), 0);
    LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, text.data(), length, result.data(), length);
    return result;
}

/// The name of an entry of the environment. It may begin with an equals sign, as those of the drives' directories do.
std::string_view NameIn(std::string_view entry)
{
    return entry.substr(0, entry.find('=', 1));
}

bool IsName(WString const & name)
{
    return !name.empty() && name.find(TEXT('='), 1) == WString::npos;
}

char const * ValueIn(char const * entry, std::string_view name)
{
    return entry[name.size()] == '=' ? entry + name.size() + 1 : nullptr;
}

/// The entry of a variable, with exactly this name or one that differs in case; null if there is none. The lock is
/// held.
char ** FindEntry(WString const & name)
{
    if (!IsName(name) || environ == nullptr)
    {
        return nullptr;
    }
    std::string const exact = ToNative(name);
    for (char ** entry = environ; *entry != nullptr; ++entry)
    {
        if (NameIn(*entry) == exact && ValueIn(*entry, exact) != nullptr)
        {
            return entry;
        }
    }
    WString const wanted = Upper(name);
    for (char ** entry = environ; *entry != nullptr; ++entry)
    {
        std::string_view const candidate = NameIn(*entry);
        bool const isVariable = !candidate.empty() && ValueIn(*entry, candidate) != nullptr;
        if (isVariable && Upper(FromNative(candidate)) == wanted)
        {
            return entry;
        }
    }
    return nullptr;
}

std::optional<WString> FindValue(WString const & name)
{
    std::lock_guard const guard(EnvironmentLock());
    char ** const entry = FindEntry(name);
    return entry != nullptr ? std::optional<WString>(FromNative(ValueIn(*entry, NameIn(*entry)))) : std::nullopt;
}

/// Entries and lists of them that this layer has made. Others may have a pointer into any of them, for ever.
struct OwnEntries
{
    std::vector<std::unique_ptr<char[]>> entries;
    std::vector<std::unique_ptr<char *[]>> lists;
};

OwnEntries & Own()
{
    static OwnEntries & own = *new OwnEntries;
    return own;
}

char * MakeEntry(std::string const & name, std::string const & value)
{
    std::string const text = name + '=' + value;
    auto entry = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(entry.get(), text.c_str(), text.size() + 1);
    Own().entries.push_back(std::move(entry));
    return Own().entries.back().get();
}

void AddEntry(char * entry)
{
    std::size_t count = 0;
    while (environ != nullptr && environ[count] != nullptr)
    {
        ++count;
    }
    auto list = std::make_unique<char *[]>(count + 2);
    std::copy_n(environ, count, list.get());
    list[count] = entry;
    Own().lists.push_back(std::move(list));
    environ = Own().lists.back().get();
}

/// Sets a variable whose name begins with an equals sign, which the C library has no call for. The lock is held.
void SetSpecial(char ** known, std::string const & name, std::optional<std::string> const & value)
{
    if (value && known != nullptr)
    {
        *known = MakeEntry(name, *value);
    }
    else if (value)
    {
        AddEntry(MakeEntry(name, *value));
    }
    else if (known != nullptr)
    {
        do
        {
            known[0] = known[1];
        } while (*known++ != nullptr);
    }
}

DWORD SizeOf(WString const & text)
{
    constexpr std::size_t most = 0x7FFFFFFF;
    return static_cast<DWORD>(text.size() < most ? text.size() + 1 : most);
}

/// `source` with the variables' values in it.
WString Expand(WString const & source)
{
    WString result;
    std::size_t done = 0;
    while (done < source.size())
    {
        std::size_t const begin = source.find(TEXT('%'), done);
        std::size_t const end = begin == WString::npos ? begin : source.find(TEXT('%'), begin + 1);
        if (end == WString::npos)
        {
            return result.append(source, done);
        }
        result.append(source, done, begin - done);
        std::optional<WString> const value = FindValue(source.substr(begin + 1, end - begin - 1));
        result += value ? *value : source.substr(begin, end + 1 - begin);
        done = end + 1;
    }
    return result;
}

} // namespace

DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size)
try
{
    std::optional<WString> const value = name != nullptr ? FindValue(WString(CallersText(name))) : std::nullopt;
    if (!value)
    {
        FailWith(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    DWORD const needed = SizeOf(*value);
    if (buffer == nullptr || size < needed)
    {
        return needed;
    }
    CopyToCaller(buffer, value->c_str(), needed * sizeof(WCHAR));
    return needed - 1;
}
catch (std::bad_alloc const &)
{
    FailWith(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value)
try
{
    WString const wanted(CallersText(name));
    if (!IsName(wanted))
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    std::optional<std::string> text;
    if (value != nullptr)
    {
        text = ToNative(WString(CallersText(value)));
    }
    std::lock_guard const guard(EnvironmentLock());
    char ** const entry = FindEntry(wanted);
    std::string const known = entry != nullptr ? std::string(NameIn(*entry)) : ToNative(wanted);
    if (known[0] == '=')
    {
        SetSpecial(entry, known, text);
        return TRUE;
    }
    int const failed = text ? setenv(known.c_str(), text->c_str(), 1) : unsetenv(known.c_str());
    return failed == 0 || FailErrno();
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR buffer, DWORD size)
try
{
    CheckText(source);
    CheckBuffer(buffer, size);
    if (source == nullptr)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return 0;
    }
    WString const result = Expand(WString(CallersText(source)));
    DWORD const needed = SizeOf(result);
    bool const fits = buffer != nullptr && size >= needed;
    if (buffer != nullptr && size != 0)
    {
        DWORD const count = fits ? needed - 1 : size - 1;
        CopyToCaller(buffer, result.c_str(), count * sizeof(WCHAR));
        buffer[count] = 0;
    }
    if (!fits)
    {
        FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    return needed;
}
catch (std::bad_alloc const &)
{
    FailWith(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}
