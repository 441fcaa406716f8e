#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <kvcore/config/RegistryKeyBase.h>
#include <kvcore/platform/win32.h>

/// A key store in memory. It has nothing of RegistryKeyBase but what every implementation gets, so that what works on
/// it works through the virtual operations alone. Values stay in the order in which they were made.
class MemoryKey : public RegistryKeyBase
{
public:
    struct Value
    {
        String name;
        DWORD type;
        std::string bytes;
    };

    using RegistryKeyBase::NameMatch;
    using RegistryKeyBase::ReadObjectInternal;

    void Close() override
    {
        isOpen = false;
    }
    bool IsValid() const override
    {
        return isOpen;
    }
    bool GetSubkeyNames(std::vector<String> & names) const override
    {
        names.insert(names.end(), subkeys.begin(), subkeys.end());
        return isListable;
    }
    bool DeleteSubkey(String name, bool recursive) override
    {
        deletions.emplace_back(name, recursive);
        auto const found = std::find(subkeys.begin(), subkeys.end(), name);
        if (name == lockedSubkey || found == subkeys.end())
        {
            return false;
        }
        subkeys.erase(found);
        return true;
    }
    bool GetValueNames(std::vector<String> & names) const override
    {
        for (Value const & value : values)
        {
            names.push_back(value.name);
        }
        return true;
    }
    bool GetValueType(String name, DWORD & type) const override
    {
        Value const * const value = Find(name);
        type = value == nullptr ? type : value->type;
        return value != nullptr;
    }
    bool GetBinary(String name, std::string & value) const override
    {
        return Get(name, REG_BINARY, value);
    }
    bool GetBoolean(String name, bool & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetFloat(String, double &) const override
    {
        return false;
    }
    bool GetInteger(String name, unsigned short & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInteger(String name, short & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInteger(String name, unsigned long & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInteger(String name, int & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInteger(String name, unsigned int & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInteger(String name, long & value) const override
    {
        return GetNumber(name, value);
    }
    bool GetInt64(String, __int64 &) const override
    {
        return false;
    }
    bool GetString(String name, String & value) const override
    {
        std::string bytes;
        if (!Get(name, REG_SZ, bytes))
        {
            return false;
        }
        value.assign(reinterpret_cast<WCHAR const *>(bytes.data()), bytes.size() / sizeof(WCHAR));
        return true;
    }
    bool SetBinary(String name, std::string const & value) override
    {
        return isWritable && Set(name, REG_BINARY, value);
    }
    bool SetBinary(String name, unsigned char const * data, unsigned int size) override
    {
        return SetBinary(name, std::string(reinterpret_cast<char const *>(data), size));
    }
    bool SetBoolean(String name, bool value) override
    {
        return SetInteger(name, value ? 1 : 0);
    }
    bool SetFloat(String, double) override
    {
        return false;
    }
    bool SetInteger(String name, DWORD value) override
    {
        return Set(name, REG_DWORD, std::string(reinterpret_cast<char const *>(&value), sizeof value));
    }
    bool SetInt64(String, __int64) override
    {
        return false;
    }
    bool SetString(String name, String value) override
    {
        return Set(
            name, REG_SZ, std::string(reinterpret_cast<char const *>(value.data()), value.size() * sizeof(WCHAR)));
    }
    bool DeleteValue(String name) override
    {
        return std::erase_if(values, [&name](Value const & value) { return value.name == name; }) != 0;
    }
    bool DeleteAllValues() override
    {
        values.clear();
        return true;
    }
    bool DeleteMultipleValues(String pattern) override
    {
        while (!values.empty() && NameMatch(values.front().name, pattern))
        {
            values.erase(values.begin());
        }
        return true;
    }
    bool GetAllValues(DWORD type, std::vector<String> & names, std::vector<std::string> & data) const override
    {
        for (Value const & value : values)
        {
            if (type == 0 || type == value.type)
            {
                names.push_back(value.name);
                data.push_back(value.bytes + std::string(type == REG_SZ ? 1 : 0, '\0'));
            }
        }
        return isListable;
    }

    bool Set(String const & name, DWORD type, std::string const & bytes)
    {
        DeleteValue(name);
        values.push_back({name, type, bytes});
        return true;
    }

    bool isOpen = true;
    bool isListable = true;
    bool isWritable = true;
    String lockedSubkey;
    std::vector<String> subkeys;
    std::vector<Value> values;
    std::vector<std::pair<String, bool>> deletions;

private:
    Value const * Find(String const & name) const
    {
        auto const found =
            std::find_if(values.begin(), values.end(), [&name](Value const & value) { return value.name == name; });
        return found == values.end() ? nullptr : &*found;
    }
    bool Get(String const & name, DWORD type, std::string & bytes) const
    {
        Value const * const value = Find(name);
        if (value == nullptr || value->type != type)
        {
            return false;
        }
        bytes = value->bytes;
        return true;
    }
    template <class Number>
    bool GetNumber(String const & name, Number & number) const
    {
        std::string bytes;
        DWORD value = 0;
        if (!Get(name, REG_DWORD, bytes) || bytes.size() != sizeof value)
        {
            return false;
        }
        std::memcpy(&value, bytes.data(), sizeof value);
        number = static_cast<Number>(value);
        return true;
    }
};
