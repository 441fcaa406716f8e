#pragma once

// The code pages of tables: one or two bytes a character.

#include <array>
#include <vector>

#include "Utf8.h"

struct UConverter;

namespace kv::platform
{

/// The page that a number stands for: those of the system's own pages stand for another.
UINT ResolveCodePage(UINT codePage);

/// A page's mappings in both directions, ready to look up. Does not change once it is built.
class CodePage
{
public:
    /// Null if the number is not that of a page of tables. Built at first use; any thread.
    static CodePage const * Find(UINT number);

    /// Whether Find would find it, without building it.
    static bool Exists(UINT number);

    bool IsLead(unsigned char byte) const
    {
        return rowOfLead[byte] != 0;
    }

    bool IsDoubleByte() const
    {
        return !rows.empty();
    }

    WCHAR DecodeSingle(unsigned char byte) const
    {
        return single[byte];
    }

    /// What stands for bytes that are no character.
    WCHAR UnicodeDefault() const
    {
        return unicodeDefault;
    }

    /// The character that `bytes` start with, of `length`, which is moved to the bytes taken. A lead byte without a
    /// trail is the default.
    WCHAR Decode(unsigned char const * bytes, std::size_t & length) const
    {
        unsigned char const row = rowOfLead[bytes[0]];
        if (row == 0)
        {
            length = 1;
            return single[bytes[0]];
        }
        if (length < 2 || bytes[1] == 0)
        {
            length = 1;
            return unicodeDefault;
        }
        length = 2;
        return rows[(row - 1u) * 256u + bytes[1]];
    }

    /// Whether `bytes`, which Decode has taken for `decoded`, are no character: it is then the default, or the place
    /// for private use that Windows gives to an undefined byte.
    bool IsUndefined(unsigned char const * bytes, std::size_t length, WCHAR decoded) const;

    /// The bytes for `c` or for what best stands in for it: one below 0x100, else two. 0 if there are none, or for NUL.
    unsigned Encode(WCHAR c) const
    {
        return encoded[c];
    }

    /// Whether `code`, as Encode gives it, stands for `c` itself.
    bool IsExact(WCHAR c, unsigned code) const;

private:
    struct Definition;

    explicit CodePage(Definition const & definition);
    void ReadSingleBytes(Definition const & definition, UConverter * converter);
    void ReadDoubleBytes(Definition const & definition, UConverter * converter);
    void AddBestFits(std::size_t page);
    static Definition const * FindDefinition(UINT number);

    static Definition const definitions[];

    std::array<WCHAR, 256> single;
    std::array<unsigned char, 256> rowOfLead; ///< From 1; 0 for what leads nothing.
    std::vector<WCHAR> rows;                  ///< 256 characters for each lead byte.
    std::vector<unsigned short> encoded;
    WCHAR unicodeDefault;
    bool usable = false;
};

} // namespace kv::platform
