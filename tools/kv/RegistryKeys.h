#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kvcore/platform/types.h>
#include <kvcore/tools/kv/Failures.h>
#include <kvcore/tools/support/RegistryPath.h>
#include <kvcore/tools/support/RegistryValue.h>

namespace kv::tools
{

/// A call of the registry has failed.
struct RegistryFailure : IoFailure
{
    /// `what` such as "cannot open HKEY_CURRENT_USER\x".
    RegistryFailure(DWORD failure, std::string const & what);

    DWORD result; ///< of the call
};

/// An open key, closed at the end. Failures are RegistryFailure; names are not paths.
class RegistryKey
{
public:
    /// Takes over a handle. `shownPath` is for messages.
    RegistryKey(HKEY handle, String shownPath) : key(handle), path(std::move(shownPath)) {}
    RegistryKey(RegistryKey && other) noexcept : key(std::exchange(other.key, nullptr)), path(std::move(other.path)) {}
    RegistryKey & operator=(RegistryKey &&) = delete;
    ~RegistryKey();

    [[nodiscard]] HKEY Handle() const
    {
        return key;
    }
    /// The whole path.
    [[nodiscard]] String const & Path() const
    {
        return path;
    }

    /// Nothing if there is no such value.
    [[nodiscard]] std::optional<RegistryValue> Value(String const & name) const;
    /// In the registry's order, but the default value first. What is deleted meanwhile is left out.
    [[nodiscard]] std::vector<RegistryValue> Values() const;
    [[nodiscard]] std::vector<String> Subkeys() const;
    void SetValue(RegistryValue const & value) const;
    /// False if there is no such value.
    [[nodiscard]] bool DeleteValue(String const & name) const;

private:
    [[noreturn]] void Fail(DWORD code, char const * what) const;

    HKEY key;
    String path;
};

/// Opens the key of a path; nothing if there is none.
[[nodiscard]] std::optional<RegistryKey> OpenRegistryKey(RegistryPath const & path, DWORD access);

/// The same, and makes it and those above it where they are missing.
[[nodiscard]] RegistryKey MakeRegistryKey(RegistryPath const & path);

/// Deletes a key, which is no root, with all that is below it. False if there is none.
[[nodiscard]] bool DeleteRegistryKey(RegistryPath const & path);

/// Told of a key with the number of keys that it is below.
using RegistryVisitor = std::function<void(RegistryKey const & key, std::size_t level)>;

/// Tells `visit` of a key and those below it, down to `depth` levels, each before what is below it. Those that cannot
/// be opened are told to `unreadable`, with the reason; those deleted meanwhile are left out.
void WalkRegistry(
    RegistryKey root, std::size_t depth, RegistryVisitor const & visit,
    std::function<void(RegistryFailure const &)> const & unreadable);

} // namespace kv::tools
