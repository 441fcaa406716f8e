#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include <unistd.h>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/processenv.h>
#include <kvcore/platform/include/winnls.h>
#include <kvcore/platform/linux/errors/ErrnoErrors.h>
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

/// The name under which a variable is there, or nothing. The lock is held.
std::optional<std::string> FindName(WString const & name)
{
    std::string const exact = ToNative(name);
    if (exact.empty() || exact.find('=') != std::string::npos)
    {
        return std::nullopt;
    }
    if (std::getenv(exact.c_str()) != nullptr)
    {
        return exact;
    }
    WString const wanted = Upper(name);
    for (char ** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    {
        std::string_view const text = *entry;
        std::string_view const candidate = text.substr(0, text.find('='));
        if (!candidate.empty() && Upper(FromNative(candidate)) == wanted)
        {
            return std::string(candidate);
        }
    }
    return std::nullopt;
}

std::optional<WString> FindValue(WString const & name)
{
    std::lock_guard const guard(EnvironmentLock());
    std::optional<std::string> const found = FindName(name);
    char const * const value = found ? std::getenv(found->c_str()) : nullptr;
    return value != nullptr ? std::optional<WString>(FromNative(value)) : std::nullopt;
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
    std::optional<WString> const value = name != nullptr ? FindValue(name) : std::nullopt;
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
    std::memcpy(buffer, value->c_str(), needed * sizeof(WCHAR));
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
    if (name == nullptr || *name == 0 || WString(name).find(TEXT('=')) != WString::npos)
    {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    std::lock_guard const guard(EnvironmentLock());
    std::string const known = FindName(name).value_or(ToNative(name));
    int const failed = value != nullptr ? setenv(known.c_str(), ToNative(value).c_str(), 1) : unsetenv(known.c_str());
    return failed == 0 || FailErrno();
}
catch (std::bad_alloc const &)
{
    return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR source, LPWSTR buffer, DWORD size)
try
{
    if (source == nullptr)
    {
        FailWith(ERROR_INVALID_PARAMETER);
        return 0;
    }
    WString const result = Expand(source);
    DWORD const needed = SizeOf(result);
    if (buffer == nullptr || size < needed)
    {
        FailWith(ERROR_INSUFFICIENT_BUFFER);
        return needed;
    }
    std::memcpy(buffer, result.c_str(), needed * sizeof(WCHAR));
    return needed;
}
catch (std::bad_alloc const &)
{
    FailWith(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}
