#pragma once

#include <string>
#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/streams/Serializing.h>

/// A key of typed, named values, with keys below it: the interface of SysRegKey and of other key stores. What is not
/// virtual here needs only the virtual operations.
///
/// Names are found without regard to case. A result of false says that an operation failed, and why is not told; the
/// output is then as it was. Nothing throws but the object operations, and those for lack of memory. Types are those of
/// the registry: REG_SZ 1, REG_BINARY 3, REG_DWORD 4.
///
/// Threads: one at a time.
class KVCORE_API RegistryKeyBase
{
public:
    virtual ~RegistryKeyBase();
    /// Leaves the key: this object is invalid then, and copies of it go on.
    virtual void Close() = 0;
    virtual bool IsValid() const = 0;

    /// Appends the names of the keys directly below.
    virtual bool GetSubkeyNames(std::vector<String> & names) const = 0;
    /// Deletes a key below, and with `recursive` all below that; without, it may have no keys below it.
    virtual bool DeleteSubkey(String name, bool recursive) = 0;

    /// Appends the names of the values.
    virtual bool GetValueNames(std::vector<String> & names) const = 0;
    /// The registry's number of a value's type.
    virtual bool GetValueType(String name, DWORD & type) const = 0;

    /// @name Reading
    /// False for a value that is missing or of another type than the one it is stored as, with the output untouched. A
    /// value of size 0 is read as true, with the output untouched too; only GetString clears it. Kept: GetFloat, which
    /// reads that text, gives 0.
    /// @{
    virtual bool GetBinary(String name, std::string & value) const = 0;
    /// A REG_DWORD. Kept: only the number 1 is true, any other is false.
    virtual bool GetBoolean(String name, bool & value) const = 0;
    /// A text, read as far as it is a number; 0 if it does not begin with one.
    virtual bool GetFloat(String name, double & value) const = 0;
    /// A REG_DWORD, cut to the size of the output.
    virtual bool GetInteger(String name, unsigned short & value) const = 0;
    virtual bool GetInteger(String name, short & value) const = 0;
    virtual bool GetInteger(String name, unsigned long & value) const = 0;
    virtual bool GetInteger(String name, int & value) const = 0;
    virtual bool GetInteger(String name, unsigned int & value) const = 0;
    virtual bool GetInteger(String name, long & value) const = 0;
    /// Kept: integers of 64 bits live as text, so this reads a REG_SZ, as far as it is a decimal number.
    virtual bool GetInt64(String name, __int64 & value) const = 0;
    /// A REG_SZ, without the NUL at its end.
    virtual bool GetString(String name, String & value) const = 0;
    /// @}

    /// @name Writing
    /// A value of the name is replaced, whatever its type was.
    /// @{
    virtual bool SetBinary(String name, std::string const & value) = 0;
    virtual bool SetBinary(String name, unsigned char const * data, unsigned int size) = 0;
    virtual bool SetBoolean(String name, bool value) = 0;
    /// Stores text with six digits behind a '.', whatever the locale. False, with nothing stored, for a number that
    /// takes more than 31 characters so.
    virtual bool SetFloat(String name, double value) = 0;
    virtual bool SetInteger(String name, DWORD value) = 0;
    /// Kept: stores an empty text, whatever the number is, and GetInt64 reads 0 then. Programs that store such numbers
    /// write the text themselves with SetString, and must not find it changed.
    virtual bool SetInt64(String name, __int64 value) = 0;
    /// Stores the text without the NULs at its end. An empty name addresses the key's default value.
    virtual bool SetString(String name, String value) = 0;
    /// @}

    virtual bool DeleteValue(String name) = 0;
    /// False as soon as one cannot be deleted.
    virtual bool DeleteAllValues() = 0;
    /// Deletes values whose names match `pattern` (see NameMatch). Kept: only those that stand in front of all others
    /// go, since the first one that does not match is looked at again in place of those behind it. True if no call
    /// failed.
    virtual bool DeleteMultipleValues(String pattern) = 0;
    /// Appends names and data of the values of a type, or of all with 0. Texts get one zero byte more, so that a NUL
    /// ends them also where their size is odd.
    virtual bool GetAllValues(DWORD type, std::vector<String> & names, std::vector<std::string> & data) const = 0;

    /// @name Bulk reading
    /// Names and values of one type. They are appended; Kept: GetAllStrings alone clears `values` first, and none
    /// clears `names`.
    /// @{
    bool GetAllBinaries(std::vector<String> & names, std::vector<std::string> & values) const;
    bool GetAllIntegers(std::vector<String> & names, std::vector<DWORD> & values) const;
    bool GetAllStrings(std::vector<String> & names, std::vector<String> & values) const;
    /// @}

    /// Deletes every key below. Goes on after a failure, and is true only if there was none.
    bool DeleteAllSubkeys(bool recursive);

    /// Stores an object, and those that it refers to, as one compressed binary value. The result is that of SetBinary.
    /// Throws what the streams throw: see SerializingOutputStream, CompressingStream.
    bool WriteObject(String name, IObjectFactory const & factory, ISerializable const & object);
    /// Reads what WriteObject stored into an object of the same class. False if there is no such value. Throws
    /// StreamBase::Exception if the bytes are not those of such an object: see SerializingInputStream,
    /// DecompressingStream; the object may be half read then.
    bool ReadObject(String name, IObjectFactory const & factory, ISerializable & object) const;

protected:
    RegistryKeyBase() = default;
    RegistryKeyBase(RegistryKeyBase const &) = default;
    RegistryKeyBase & operator=(RegistryKeyBase const &) = default;

    /// Whether a name begins as the pattern says. '?' is any one character, and '*' ends the comparison: all that
    /// follows matches. Kept: the pattern's end does so too, so that a name may always go on. Case counts.
    static bool NameMatch(String name, String pattern);

    /// ReadObject into `target`; if that is null, into a new object, which is the caller's. `ok` tells whether there is
    /// an object. Null, with nothing read, if there is no such value.
    ISerializable *
    ReadObjectInternal(String name, IObjectFactory const & factory, ISerializable * target, bool & ok) const;
};
