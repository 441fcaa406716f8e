#include <algorithm>
#include <cstring>

#include <kvcore/config/RegistryKeyBase.h>
#include <kvcore/platform/win32.h>
#include <kvcore/streams/Compressing.h>
#include <kvcore/streams/MemoryStreams.h>

RegistryKeyBase::~RegistryKeyBase() = default;

bool RegistryKeyBase::GetAllBinaries(std::vector<String> & names, std::vector<std::string> & values) const
{
    return GetAllValues(REG_BINARY, names, values);
}

bool RegistryKeyBase::GetAllIntegers(std::vector<String> & names, std::vector<DWORD> & values) const
{
    std::vector<std::string> data;
    if (!GetAllValues(REG_DWORD, names, data))
    {
        return false;
    }
    for (std::string const & bytes : data)
    {
        // A stored value may be of any size, whatever its type says.
        DWORD value = 0;
        std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
        values.push_back(value);
    }
    return true;
}

bool RegistryKeyBase::GetAllStrings(std::vector<String> & names, std::vector<String> & values) const
{
    values.clear();
    std::vector<std::string> data;
    if (!GetAllValues(REG_SZ, names, data))
    {
        return false;
    }
    for (std::string const & bytes : data)
    {
        WString text(bytes.size() / sizeof(WCHAR), 0);
        std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
        values.emplace_back(text.substr(0, text.find(TEXT('\0'))));
    }
    return true;
}

bool RegistryKeyBase::DeleteAllSubkeys(bool recursive)
{
    std::vector<String> names;
    bool good = GetSubkeyNames(names);
    for (String const & name : names)
    {
        good = DeleteSubkey(name, recursive) && good;
    }
    return good;
}

bool RegistryKeyBase::NameMatch(String name, String pattern)
{
    for (std::size_t i = 0; i < pattern.size(); ++i)
    {
        if (pattern[i] == TEXT('*'))
        {
            return true;
        }
        if (i == name.size() || (pattern[i] != TEXT('?') && pattern[i] != name[i]))
        {
            return false;
        }
    }
    return true;
}

bool RegistryKeyBase::WriteObject(String name, IObjectFactory const & factory, ISerializable const & object)
{
    MemoryOutputStream memory;
    CompressingStream compressed(memory, -1);
    SerializingOutputStream stream(factory, compressed);
    stream.Write(object);
    return SetBinary(name, memory.GetContent());
}

bool RegistryKeyBase::ReadObject(String name, IObjectFactory const & factory, ISerializable & object) const
{
    bool ok = false;
    ReadObjectInternal(name, factory, &object, ok);
    return ok;
}

ISerializable * RegistryKeyBase::ReadObjectInternal(
    String name, IObjectFactory const & factory, ISerializable * target, bool & ok) const
{
    std::string bytes;
    ok = GetBinary(name, bytes);
    if (!ok)
    {
        return nullptr;
    }
    MemoryInputStream memory(bytes);
    DecompressingStream decompressed(memory);
    SerializingInputStream stream(factory, decompressed);
    if (target == nullptr)
    {
        ISerializable * const created = stream.Create();
        ok = created != nullptr;
        return created;
    }
    stream.Read(*target);
    ok = true;
    return target;
}
