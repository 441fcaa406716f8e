#pragma once

#include <kvcore/config/RegistryKeyBase.h>
#include <kvcore/platform/types.h>

/// A key of the system's registry.
///
/// Copies share one handle, and the last of them closes it. An invalid key answers every operation with false: so does
/// what comes of opening a key that is not there.
///
/// Threads: the count of the copies is a plain one, so all copies of a key belong to one thread at a time.
class KVCORE_API SysRegKey : public RegistryKeyBase
{
public:
    /// Takes over the handle and closes it at the end, unless it is null or one of the predefined roots.
    SysRegKey(HKEY key);
    SysRegKey(SysRegKey const & other);
    SysRegKey & operator=(SysRegKey const & other);
    ~SysRegKey() override;

    /// Whether both share one handle. Two handles of the same key are not equal.
    bool operator==(SysRegKey const & other) const;

    void Close() override;
    bool IsValid() const override;
    bool GetSubkeyNames(std::vector<String> & names) const override;
    bool DeleteSubkey(String name, bool recursive) override;
    bool GetValueNames(std::vector<String> & names) const override;
    bool GetValueType(String name, DWORD & type) const override;
    bool GetBinary(String name, std::string & value) const override;
    bool GetBoolean(String name, bool & value) const override;
    bool GetFloat(String name, double & value) const override;
    bool GetInteger(String name, unsigned short & value) const override;
    bool GetInteger(String name, short & value) const override;
    bool GetInteger(String name, unsigned long & value) const override;
    bool GetInteger(String name, int & value) const override;
    bool GetInteger(String name, unsigned int & value) const override;
    bool GetInteger(String name, long & value) const override;
    bool GetInt64(String name, __int64 & value) const override;
    bool GetString(String name, String & value) const override;
    bool SetBinary(String name, std::string const & value) override;
    bool SetBinary(String name, unsigned char const * data, unsigned int size) override;
    bool SetBoolean(String name, bool value) override;
    bool SetFloat(String name, double value) override;
    bool SetInteger(String name, DWORD value) override;
    bool SetInt64(String name, __int64 value) override;
    bool SetString(String name, String value) override;
    bool DeleteValue(String name) override;
    bool DeleteAllValues() override;
    bool DeleteMultipleValues(String pattern) override;
    bool GetAllValues(DWORD type, std::vector<String> & names, std::vector<std::string> & data) const override;

    /// Puts what was changed on the disk.
    bool Flush();

    /// Makes this object a root of a machine's registry, and returns 0; or keeps this key, and returns the system's
    /// error code.
    LONG ConnectRegistry(String machine, HKEY root);

    /// Opens a key below, and makes it if it is missing; invalid on failure. `options` and `access` are the registry's
    /// (REG_OPTION_..., KEY_...). `disposition` may be null; it is told which of the two happened.
    SysRegKey CreateSubkey(String name, DWORD options, DWORD access, DWORD * disposition) const;
    /// Opens a key below; invalid on failure.
    SysRegKey OpenSubkey(String name, DWORD access) const;
    /// Sets the default value of a key below, which is made if it is missing; an empty name is this key.
    bool SetSubkey(String subkey, String value);

private:
    struct SharedKey
    {
        HKEY key;
        unsigned int references;
    };

    void Drop();

    SharedKey * shared;
};
