#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include <kvcore/platform/include/errors.h>
#include <kvcore/platform/include/winreg.h>
#include <kvcore/platform/linux/memory/CallerMemory.h>
#include <kvcore/platform/linux/registry/RegistryKey.h>

using namespace kv::platform;

namespace
{

constexpr std::size_t mostNameUnits = 16383;

bool IsText(DWORD type) noexcept
{
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

/// Whether a text ends without its NUL, be it with half a letter.
bool LacksNul(std::string_view bytes) noexcept
{
    std::size_t const size = bytes.size();
    return size == 1 || (size > 1 && (bytes[size - 2] != 0 || bytes[size - 1] != 0));
}

/// Hands out a value's data as the reading calls do. The memory is the caller's, and may fault.
LSTATUS GiveData(std::string_view bytes, DWORD type, BYTE * data, LPDWORD size)
{
    if (size == nullptr)
    {
        return ERROR_SUCCESS;
    }
    DWORD const room = *size;
    *size = static_cast<DWORD>(bytes.size());
    if (data == nullptr)
    {
        return ERROR_SUCCESS;
    }
    if (bytes.size() > room)
    {
        return ERROR_MORE_DATA;
    }
    CopyToCaller(data, bytes.data(), bytes.size());
    // A text that was stored without its NUL is given one, which does not count.
    if (IsText(type) && LacksNul(bytes) && room - bytes.size() >= sizeof(WCHAR))
    {
        data[bytes.size()] = 0;
        data[bytes.size() + 1] = 0;
    }
    return ERROR_SUCCESS;
}

/// Hands out a name with its NUL. `size` has the room in elements, and is untouched if that does not do.
LSTATUS GiveName(std::string_view bytes, LPWSTR name, LPDWORD size)
{
    std::size_t const length = bytes.size() / sizeof(WCHAR);
    if (length >= *size)
    {
        return ERROR_MORE_DATA;
    }
    CopyToCaller(name, bytes.data(), length * sizeof(WCHAR)); // which may be none at no place
    name[length] = 0;
    *size = static_cast<DWORD>(length);
    return ERROR_SUCCESS;
}

/// The row at `index`, found from the place before it where that is known. One row costs one step that way, wherever it
/// stands.
bool StepTo(KeyUse const & use, Statement & at, Statement & after, EnumerationPlace * place, DWORD index, bool & isNext)
{
    isNext = place != nullptr && place->isSet && index != 0 && place->index == index - 1 &&
        place->changeCount == use.Store().ChangeCount();
    return isNext ? after.Bind(use.Id()).Bind(place->folded).Step()
                  : at.Bind(use.Id()).Bind(std::int64_t{index}).Step();
}

void Remember(KeyUse const & use, EnumerationPlace * place, DWORD index, std::string_view folded)
{
    if (place != nullptr)
    {
        place->index = index;
        place->folded = folded;
        place->changeCount = use.Store().ChangeCount();
        place->isSet = true;
    }
}

LSTATUS EndOfEnumeration(KeyUse const & use, Statement const & statement) noexcept
{
    return statement.Result() != ERROR_SUCCESS ? statement.Result() : use.NothingFound(ERROR_NO_MORE_ITEMS);
}

void GiveTime(std::int64_t written, FILETIME * time)
{
    if (time != nullptr)
    {
        time->dwLowDateTime = static_cast<DWORD>(written & 0xFFFFFFFF);
        time->dwHighDateTime = static_cast<DWORD>(written >> 32);
    }
}

void Give(LPDWORD place, std::int64_t number)
{
    if (place != nullptr)
    {
        *place = static_cast<DWORD>(number);
    }
}

/// A key's class, and when it was last written.
LSTATUS ReadKeyInfo(KeyUse const & use, KeyId id, std::string & keyClass, std::int64_t & written)
{
    Statement statement = use.Store().Use(Sql::KeyInfo);
    if (!statement.Bind(id).Step())
    {
        return statement.Result() != ERROR_SUCCESS ? statement.Result() : static_cast<LSTATUS>(ERROR_KEY_DELETED);
    }
    keyClass = statement.Bytes(0);
    written = statement.Number(1);
    return ERROR_SUCCESS;
}

/// A caller's data in memory of the call's own. SQLite must not meet a bad pointer in the middle of its work.
class CallersData
{
public:
    CallersData(BYTE const * data, DWORD size) : length(size)
    {
        if (size > small.size())
        {
            large.reset(new char[size]);
        }
        CopyFromCaller(Begin(), data, size);
    }
    std::string_view Bytes() noexcept
    {
        return {Begin(), length};
    }

private:
    char * Begin() noexcept
    {
        return large != nullptr ? large.get() : small.data();
    }

    DWORD const length;
    std::array<char, 256> small; // most values are small
    std::unique_ptr<char[]> large;
};

/// A key that a call opens for itself.
class OpenedKey
{
public:
    OpenedKey() = default;
    OpenedKey(OpenedKey const &) = delete;
    OpenedKey & operator=(OpenedKey const &) = delete;
    ~OpenedKey()
    {
        if (key != nullptr)
        {
            RegCloseKey(key);
        }
    }
    operator HKEY() const noexcept
    {
        return key;
    }
    PHKEY Place() noexcept
    {
        return &key;
    }

private:
    HKEY key = nullptr;
};

LSTATUS StoreValue(KeyUse const & use, std::u16string_view name, DWORD type, std::string_view bytes)
{
    if (LSTATUS const gone = use.Store().CheckPlace(); gone != ERROR_SUCCESS)
    {
        return gone;
    }
    FoldedName const folded(name);
    LSTATUS const status = use.Store()
                               .Use(Sql::SetValue)
                               .Bind(use.Id())
                               .Bind(folded)
                               .Bind(NameBytes(name))
                               .Bind(std::int64_t{type})
                               .Bind(bytes)
                               .Bind(WriteTime())
                               .Run();
    if (status != ERROR_SUCCESS)
    {
        return status;
    }
    if (!use.Store().HasChanged())
    {
        return use.NothingFound(ERROR_SUCCESS); // the same value again is no change
    }
    use.Store().NoteChange({use.Id(), REG_NOTIFY_CHANGE_LAST_SET, false});
    return ERROR_SUCCESS;
}

} // namespace

LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, BYTE * data, LPDWORD size)
try
{
    if (reserved != nullptr || (data != nullptr && size == nullptr))
    {
        return ERROR_INVALID_PARAMETER;
    }
    KeyUse const use(key, KEY_QUERY_VALUE);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    FoldedName const folded(CallersText(name));
    Statement statement = use.Store().Use(Sql::GetValue);
    if (statement.Bind(use.Id()).Bind(folded).Step())
    {
        DWORD const found = static_cast<DWORD>(statement.Number(0));
        if (type != nullptr)
        {
            *type = found;
        }
        return GiveData(statement.Bytes(1), found, data, size);
    }
    if (size != nullptr && data == nullptr)
    {
        *size = 0;
    }
    return statement.Result() != ERROR_SUCCESS ? statement.Result() : use.NothingFound(ERROR_FILE_NOT_FOUND);
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD, DWORD type, BYTE const * data, DWORD size)
try
{
    std::u16string_view const view = CallersText(name);
    if (view.size() > mostNameUnits)
    {
        return ERROR_INVALID_PARAMETER;
    }
    if (data == nullptr && size != 0)
    {
        return ERROR_NOACCESS;
    }
    KeyUse const use(key, KEY_SET_VALUE);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    CallersData copy(data, size);
    return StoreValue(use, view, type, copy.Bytes());
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegQueryValueW(HKEY key, LPCWSTR path, LPWSTR text, LONG * size)
{
    if (text != nullptr && size == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    OpenedKey opened;
    LSTATUS status = RegOpenKeyExW(key, path, 0, KEY_QUERY_VALUE, opened.Place());
    if (status != ERROR_SUCCESS)
    {
        return status;
    }
    status = RegQueryValueExW(
        opened, nullptr, nullptr, nullptr, reinterpret_cast<BYTE *>(text), reinterpret_cast<LPDWORD>(size));
    if (status == static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND))
    {
        // A key without a default value has an empty one.
        if (text != nullptr)
        {
            text[0] = 0;
        }
        if (size != nullptr)
        {
            *size = sizeof(WCHAR);
        }
        return ERROR_SUCCESS;
    }
    return status;
}

LSTATUS WINAPI RegSetValueW(HKEY key, LPCWSTR path, DWORD type, LPCWSTR text, DWORD)
{
    if (type != REG_SZ || text == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    OpenedKey opened;
    bool const isBelow = path != nullptr && *path != 0;
    LSTATUS status = isBelow
        ? RegCreateKeyExW(key, path, 0, nullptr, 0, KEY_SET_VALUE, nullptr, opened.Place(), nullptr)
        : RegOpenKeyExW(key, nullptr, 0, KEY_SET_VALUE, opened.Place());
    if (status != ERROR_SUCCESS)
    {
        return status;
    }
    std::size_t const size = (std::u16string_view(text).size() + 1) * sizeof(WCHAR);
    status = size > std::numeric_limits<DWORD>::max()
        ? static_cast<LSTATUS>(ERROR_INVALID_PARAMETER)
        : RegSetValueExW(opened, nullptr, 0, REG_SZ, reinterpret_cast<BYTE const *>(text), static_cast<DWORD>(size));
    return status;
}

LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name)
try
{
    KeyUse const use(key, KEY_SET_VALUE);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    FoldedName const folded(CallersText(name));
    Transaction transaction(use.Store());
    LSTATUS status = transaction.Result();
    if (status == ERROR_SUCCESS)
    {
        status = use.Store().Use(Sql::DeleteValue).Bind(use.Id()).Bind(folded).Run();
    }
    if (status == ERROR_SUCCESS && !use.Store().HasChanged())
    {
        return use.NothingFound(ERROR_FILE_NOT_FOUND);
    }
    if (status == ERROR_SUCCESS)
    {
        status = use.Store().Use(Sql::TouchKey).Bind(use.Id()).Bind(WriteTime()).Run();
    }
    return status == ERROR_SUCCESS ? transaction.Commit({use.Id(), REG_NOTIFY_CHANGE_LAST_SET, false}) : status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegEnumValueW(
    HKEY key, DWORD index, LPWSTR name, LPDWORD nameSize, LPDWORD reserved, LPDWORD type, BYTE * data, LPDWORD size)
try
{
    if (reserved != nullptr || name == nullptr || nameSize == nullptr || (data != nullptr && size == nullptr))
    {
        return ERROR_INVALID_PARAMETER;
    }
    KeyUse const use(key, KEY_QUERY_VALUE);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    EnumerationPlace * const place = use.Object() == nullptr ? nullptr : &use.Object()->valuePlace;
    Statement at = use.Store().Use(Sql::ValueAt);
    Statement after = use.Store().Use(Sql::ValueAfter);
    bool isNext = false;
    bool const isFound = StepTo(use, at, after, place, index, isNext);
    Statement & row = isNext ? after : at;
    if (!isFound)
    {
        return EndOfEnumeration(use, row);
    }
    LSTATUS const status = GiveName(row.Bytes(0), name, nameSize);
    if (status != ERROR_SUCCESS)
    {
        return status;
    }
    DWORD const found = static_cast<DWORD>(row.Number(1));
    Give(type, found);
    Remember(use, place, index, row.Bytes(3));
    return GiveData(row.Bytes(2), found, data, size);
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegEnumKeyExW(
    HKEY key, DWORD index, LPWSTR name, LPDWORD nameSize, LPDWORD reserved, LPWSTR keyClass, LPDWORD classSize,
    FILETIME * lastWrite)
try
{
    if (reserved != nullptr || name == nullptr || nameSize == nullptr || (keyClass != nullptr && classSize == nullptr))
    {
        return ERROR_INVALID_PARAMETER;
    }
    KeyUse const use(key, KEY_ENUMERATE_SUB_KEYS);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    EnumerationPlace * const place = use.Object() == nullptr ? nullptr : &use.Object()->keyPlace;
    Statement at = use.Store().Use(Sql::KeyAt);
    Statement after = use.Store().Use(Sql::KeyAfter);
    bool isNext = false;
    bool const isFound = StepTo(use, at, after, place, index, isNext);
    Statement & row = isNext ? after : at;
    if (!isFound)
    {
        return EndOfEnumeration(use, row);
    }
    // A class without room leaves the name alone, too.
    LSTATUS status = row.Bytes(0).size() / sizeof(WCHAR) >= *nameSize ? static_cast<LSTATUS>(ERROR_MORE_DATA)
        : keyClass != nullptr                                         ? GiveName(row.Bytes(2), keyClass, classSize)
                                                                      : ERROR_SUCCESS;
    if (status == ERROR_SUCCESS)
    {
        status = GiveName(row.Bytes(0), name, nameSize);
    }
    if (status == ERROR_SUCCESS && lastWrite != nullptr)
    {
        std::string ignored;
        std::int64_t written = 0;
        status = ReadKeyInfo(use, row.Number(1), ignored, written);
        GiveTime(written, lastWrite);
    }
    Remember(use, place, index, row.Bytes(3));
    return status;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}

LSTATUS WINAPI RegQueryInfoKeyW(
    HKEY key, LPWSTR keyClass, LPDWORD classSize, LPDWORD, LPDWORD keys, LPDWORD longestKey, LPDWORD longestClass,
    LPDWORD values, LPDWORD longestValueName, LPDWORD longestData, LPDWORD securitySize, FILETIME * lastWrite)
try
{
    if (keyClass != nullptr && classSize == nullptr)
    {
        return ERROR_INVALID_PARAMETER;
    }
    KeyUse const use(key, KEY_QUERY_VALUE);
    if (use.Result() != ERROR_SUCCESS)
    {
        return use.Result();
    }
    std::string foundClass;
    std::int64_t written = 0;
    if (LSTATUS const status = ReadKeyInfo(use, use.Id(), foundClass, written); status != ERROR_SUCCESS)
    {
        return status;
    }
    GiveTime(written, lastWrite);
    Give(securitySize, 0);
    {
        Statement statement = use.Store().Use(Sql::ChildrenInfo);
        if (!statement.Bind(use.Id()).Step())
        {
            return statement.Result();
        }
        Give(keys, statement.Number(0));
        Give(longestKey, statement.Number(1) / std::int64_t{sizeof(WCHAR)});
        Give(longestClass, statement.Number(2) / std::int64_t{sizeof(WCHAR)});
    }
    {
        Statement statement = use.Store().Use(Sql::ValuesInfo);
        if (!statement.Bind(use.Id()).Step())
        {
            return statement.Result();
        }
        Give(values, statement.Number(0));
        Give(longestValueName, statement.Number(1) / std::int64_t{sizeof(WCHAR)});
        Give(longestData, statement.Number(2));
    }
    bool const isWanted = keyClass != nullptr && *classSize != 0;
    if (isWanted && GiveName(foundClass, keyClass, classSize) != ERROR_SUCCESS)
    {
        *classSize = static_cast<DWORD>(foundClass.size() / sizeof(WCHAR));
        return ERROR_INSUFFICIENT_BUFFER;
    }
    if (!isWanted && classSize != nullptr)
    {
        *classSize = static_cast<DWORD>(foundClass.size() / sizeof(WCHAR));
    }
    return ERROR_SUCCESS;
}
catch (std::bad_alloc const &)
{
    return ERROR_NOT_ENOUGH_MEMORY;
}
