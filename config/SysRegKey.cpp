#include <algorithm>
#include <cstring>
#include <limits>

#include <kvcore/config/LeadingNumber.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/win32.h>

namespace
{

/// The roots are the numbers 0x80000000 to 0x80000006, whatever their upper half is.
bool IsPredefined(HKEY key)
{
    DWORD const number = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(key));
    return number >= 0x80000000u && number <= 0x80000006u;
}

bool Good(LSTATUS status)
{
    return status == ERROR_SUCCESS;
}

/// Reads a value of a type. The bytes are empty for a value of size 0.
bool ReadValue(HKEY key, String const & name, DWORD wanted, std::string & bytes)
{
    // Most values are small, and one query of the registry is all that they take.
    char small[256];
    DWORD type = 0;
    DWORD size = sizeof small;
    LSTATUS status = RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(small), &size);
    if (Good(status) && type == wanted)
    {
        bytes.assign(small, size);
        return true;
    }
    // Another process may change the value between two queries.
    while (status == ERROR_MORE_DATA && type == wanted)
    {
        bytes.resize(size);
        status = RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE *>(bytes.data()), &size);
        if (Good(status) && type == wanted)
        {
            bytes.resize(size);
            return true;
        }
    }
    return false;
}

/// A REG_DWORD. Of a value that is longer the first four bytes count, and one that is shorter goes on with zeros.
bool ReadNumber(HKEY key, String const & name, DWORD & number, bool & isEmpty)
{
    std::string bytes;
    if (!ReadValue(key, name, REG_DWORD, bytes))
    {
        return false;
    }
    number = 0;
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    isEmpty = bytes.empty();
    return true;
}

template <class Number>
bool GetNumber(HKEY key, String const & name, Number & value)
{
    DWORD number = 0;
    bool isEmpty = false;
    if (!ReadNumber(key, name, number, isEmpty))
    {
        return false;
    }
    if (!isEmpty)
    {
        value = static_cast<Number>(number);
    }
    return true;
}

bool StoreValue(HKEY key, WCHAR const * name, DWORD type, void const * data, std::size_t size)
{
    return size <= std::numeric_limits<DWORD>::max() &&
        Good(RegSetValueExW(key, name, 0, type, static_cast<BYTE const *>(data), static_cast<DWORD>(size)));
}

/// The counts and lengths of a key's values.
struct ValuesInfo
{
    DWORD count = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
};

bool GetValuesInfo(HKEY key, ValuesInfo & info)
{
    return Good(RegQueryInfoKeyW(
        key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &info.count, &info.longestName, &info.longestData,
        nullptr, nullptr));
}

LSTATUS EnumValueName(HKEY key, DWORD index, WString & buffer)
{
    DWORD size = static_cast<DWORD>(buffer.size());
    return RegEnumValueW(key, index, buffer.data(), &size, nullptr, nullptr, nullptr, nullptr);
}

constexpr DWORD longestKeyName = 256;
constexpr DWORD longestValueName = 16384;

} // namespace

SysRegKey::SysRegKey(HKEY key) : shared(new SharedKey{key, 1}) {}

SysRegKey::SysRegKey(SysRegKey const & other) : RegistryKeyBase(other), shared(other.shared)
{
    ++shared->references;
}

SysRegKey & SysRegKey::operator=(SysRegKey const & other)
{
    ++other.shared->references;
    Drop();
    shared = other.shared;
    return *this;
}

SysRegKey::~SysRegKey()
{
    Drop();
}

bool SysRegKey::operator==(SysRegKey const & other) const
{
    return shared == other.shared;
}

void SysRegKey::Drop()
{
    if (--shared->references != 0)
    {
        return;
    }
    HKEY const key = shared->key;
    delete shared;
    if (key != nullptr && !IsPredefined(key))
    {
        RegCloseKey(key);
    }
}

void SysRegKey::Close()
{
    // A block of its own, since copies go on with the old one.
    SharedKey * const none = new SharedKey{nullptr, 1};
    Drop();
    shared = none;
}

bool SysRegKey::IsValid() const
{
    return shared->key != nullptr;
}

bool SysRegKey::GetSubkeyNames(std::vector<String> & names) const
{
    WCHAR name[longestKeyName + 1];
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; Good(status); ++index)
    {
        DWORD size = longestKeyName + 1;
        status = RegEnumKeyExW(shared->key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
        if (Good(status))
        {
            names.emplace_back(name);
        }
    }
    return status == ERROR_NO_MORE_ITEMS;
}

bool SysRegKey::DeleteSubkey(String name, bool recursive)
{
    DWORD const result =
        recursive ? SHDeleteKeyW(shared->key, name.c_str()) : SHDeleteEmptyKeyW(shared->key, name.c_str());
    return static_cast<LONG>(result) <= 0;
}

bool SysRegKey::GetValueNames(std::vector<String> & names) const
{
    WString buffer(longestValueName, 0);
    LSTATUS status = ERROR_SUCCESS;
    for (DWORD index = 0; Good(status); ++index)
    {
        status = EnumValueName(shared->key, index, buffer);
        if (Good(status))
        {
            names.emplace_back(buffer.c_str());
        }
    }
    return status == ERROR_NO_MORE_ITEMS;
}

bool SysRegKey::GetValueType(String name, DWORD & type) const
{
    DWORD found = 0;
    if (!Good(RegQueryValueExW(shared->key, name.c_str(), nullptr, &found, nullptr, nullptr)))
    {
        return false;
    }
    type = found;
    return true;
}

bool SysRegKey::GetBinary(String name, std::string & value) const
{
    std::string bytes;
    if (!ReadValue(shared->key, name, REG_BINARY, bytes))
    {
        return false;
    }
    if (!bytes.empty())
    {
        value = std::move(bytes);
    }
    return true;
}

bool SysRegKey::GetBoolean(String name, bool & value) const
{
    DWORD number = 0;
    bool isEmpty = false;
    if (!ReadNumber(shared->key, name, number, isEmpty))
    {
        return false;
    }
    if (!isEmpty)
    {
        value = number == 1; // Kept: programs store other numbers to mean "not set".
    }
    return true;
}

bool SysRegKey::GetFloat(String name, double & value) const
{
    String text;
    if (!GetString(name, text))
    {
        return false;
    }
    value = kv::detail::LeadingDouble(text);
    return true;
}

bool SysRegKey::GetInteger(String name, unsigned short & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInteger(String name, short & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInteger(String name, unsigned long & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInteger(String name, int & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInteger(String name, unsigned int & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInteger(String name, long & value) const
{
    return GetNumber(shared->key, name, value);
}

bool SysRegKey::GetInt64(String name, __int64 & value) const
{
    std::string bytes;
    String text;
    if (!ReadValue(shared->key, name, REG_SZ, bytes))
    {
        return false;
    }
    if (!bytes.empty())
    {
        GetString(name, text);
        value = kv::detail::LeadingInt64(text);
    }
    return true;
}

bool SysRegKey::GetString(String name, String & value) const
{
    std::string bytes;
    if (!ReadValue(shared->key, name, REG_SZ, bytes))
    {
        return false;
    }
    WString text(bytes.size() / sizeof(WCHAR), 0); // an odd byte at the end is none of a text
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
    if (!text.empty() && text.back() == 0)
    {
        text.pop_back();
    }
    value = text;
    return true;
}

bool SysRegKey::SetBinary(String name, std::string const & value)
{
    return StoreValue(shared->key, name.c_str(), REG_BINARY, value.data(), value.size());
}

bool SysRegKey::SetBinary(String name, unsigned char const * data, unsigned int size)
{
    return StoreValue(shared->key, name.c_str(), REG_BINARY, data, size);
}

bool SysRegKey::SetBoolean(String name, bool value)
{
    return SetInteger(name, value ? 1 : 0);
}

bool SysRegKey::SetFloat(String name, double value)
{
    // Kept: the text had its place in a buffer of 32 characters, and what was stored is what fitted into it.
    constexpr std::size_t longest = 31;
    String text = String::FromFormat(TEXT("%lf"), value);
    text.resize(std::min(text.size(), longest));
    return SetString(name, text);
}

bool SysRegKey::SetInteger(String name, DWORD value)
{
    return StoreValue(shared->key, name.c_str(), REG_DWORD, &value, sizeof value);
}

bool SysRegKey::SetInt64(String name, __int64 value)
{
    WCHAR digits[32];
    // Kept: the routine's result, which is 0 for a success, is taken for the length of the text.
    int const length = _i64tow_s(value, digits, 32, 10);
    return SetString(name, String(digits, static_cast<unsigned int>(length)));
}

bool SysRegKey::SetString(String name, String value)
{
    value.resize(value.find_last_not_of(TEXT('\0')) + 1);
    return StoreValue(
        shared->key, name.empty() ? nullptr : name.c_str(), REG_SZ, value.c_str(), (value.size() + 1) * sizeof(WCHAR));
}

bool SysRegKey::DeleteValue(String name)
{
    return Good(RegDeleteValueW(shared->key, name.c_str()));
}

bool SysRegKey::DeleteAllValues()
{
    WString buffer(520, 0); // Kept: a longer name ends it, with that value and those behind it left
    for (;;)
    {
        LSTATUS const status = EnumValueName(shared->key, 0, buffer);
        if (!Good(status))
        {
            return status == ERROR_NO_MORE_ITEMS;
        }
        if (!Good(RegDeleteValueW(shared->key, buffer.c_str())))
        {
            return false; // it would be the first again, for ever
        }
    }
}

bool SysRegKey::DeleteMultipleValues(String pattern)
{
    ValuesInfo info;
    if (!GetValuesInfo(shared->key, info))
    {
        return false;
    }
    WString buffer(std::size_t{info.longestName} + 1, 0);
    for (DWORD pass = 0; pass < info.count; ++pass)
    {
        // Kept: the first value in each pass, so the first that does not match stands before all behind it.
        if (!Good(EnumValueName(shared->key, 0, buffer)))
        {
            return false;
        }
        String const name(buffer.c_str());
        if (NameMatch(name, pattern) && !Good(RegDeleteValueW(shared->key, name.c_str())))
        {
            return false;
        }
    }
    return true;
}

bool SysRegKey::GetAllValues(DWORD type, std::vector<String> & names, std::vector<std::string> & data) const
{
    ValuesInfo info;
    if (!GetValuesInfo(shared->key, info))
    {
        return false;
    }
    WString name(std::size_t{info.longestName} + 1, 0);
    std::string bytes(std::size_t{info.longestData} + 1, '\0');
    for (DWORD index = 0;; ++index)
    {
        DWORD nameSize = static_cast<DWORD>(name.size());
        DWORD size = static_cast<DWORD>(bytes.size());
        DWORD found = 0;
        if (!Good(RegEnumValueW(
                shared->key, index, name.data(), &nameSize, nullptr, &found, reinterpret_cast<BYTE *>(bytes.data()),
                &size)))
        {
            return true;
        }
        if (type == 0 || type == found)
        {
            names.emplace_back(name.c_str());
            data.emplace_back(bytes, 0, size);
            if (type == REG_SZ)
            {
                data.back() += '\0';
            }
        }
    }
}

bool SysRegKey::Flush()
{
    return Good(RegFlushKey(shared->key));
}

LONG SysRegKey::ConnectRegistry(String machine, HKEY root)
{
    HKEY key = nullptr;
    LSTATUS const status = RegConnectRegistryW(machine.c_str(), root, &key);
    if (Good(status))
    {
        *this = SysRegKey(key);
    }
    return status;
}

SysRegKey SysRegKey::CreateSubkey(String name, DWORD options, DWORD access, DWORD * disposition) const
{
    HKEY key = nullptr;
    LSTATUS const status =
        RegCreateKeyExW(shared->key, name.c_str(), 0, nullptr, options, access, nullptr, &key, disposition);
    return SysRegKey(Good(status) ? key : nullptr);
}

SysRegKey SysRegKey::OpenSubkey(String name, DWORD access) const
{
    HKEY key = nullptr;
    LSTATUS const status = RegOpenKeyExW(shared->key, name.c_str(), 0, access, &key);
    return SysRegKey(Good(status) ? key : nullptr);
}

bool SysRegKey::SetSubkey(String subkey, String value)
{
    std::size_t const size = value.size() * sizeof(WCHAR) + sizeof(WCHAR);
    return size <= std::numeric_limits<DWORD>::max() &&
        Good(RegSetValueW(
            shared->key, subkey.empty() ? nullptr : subkey.c_str(), REG_SZ, value.c_str(), static_cast<DWORD>(size)));
}
