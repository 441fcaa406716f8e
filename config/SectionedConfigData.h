#pragma once

#include <vector>

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

/// Settings in memory: named sections of named texts, with typed getters and setters over the texts, and the classic
/// sectioned profile file as their form on a disk.
///
/// Everything is text; what a value was set as is recorded nowhere. Section names and keys are compared exactly, unit
/// by unit, so case counts; empty names are names. All listings are in the order of the units, a shorter name before
/// the longer one that it begins.
///
/// Getters give true if the value exists, and leave the output alone if it does not. A text that is no number reads as
/// 0 and still gives true. Setters create what is missing and give true always.
///
/// Only ReadWindowsProfile and WriteWindowsProfile throw. Threads: no locks; one thread at a time.
class KVCORE_API SectionedConfigData
{
public:
    /// What the two file operations throw, by value.
    struct KVCORE_API Exception
    {
        /// 0: the file could not be opened, read or written. 1: its content does not fit, be it a header that is
        /// another or a section that is empty or too long.
        int kind;
        /// The system's text for what went wrong; empty where the system was content.
        String text;
    };

    /// No header, no sections.
    SectionedConfigData();
    /// Copies header and sections.
    SectionedConfigData(SectionedConfigData const & other);
    ~SectionedConfigData();
    /// Kept: copies the sections only; this object's header stays, since a header says what kind of file this object
    /// writes, whoever its values come from.
    SectionedConfigData & operator=(SectionedConfigData const & other);

    /// The text that the file begins with, and is known by; empty for none. Kept: setting it is const, for it is no
    /// part of the values.
    String const & GetHeader() const;
    void SetHeader(String const & header) const;

    /// @name Listing and removing
    /// @{
    int GetNumSections() const;
    /// 0 for a section that is not there.
    int GetNumKeys(String const & section) const;
    /// Makes `names` the names of all sections.
    void GetSectionNames(std::vector<String> & names) const;
    /// Makes `names` the section's keys. False, and `names` stays, if there is no such section.
    bool GetKeyNames(String const & section, std::vector<String> & names) const;

    /// Removes all sections. The header stays.
    void Clear();
    void ClearSection(String const & section);
    /// Removes a key, and the section with it if that holds no key then, or held none before.
    void ClearKey(String const & section, String const & key);
    /// @}

    /// @name Texts
    /// @{
    bool GetString(String const & section, String const & key, String & value) const;
    bool SetString(String const & section, String const & key, String const & value);
    /// @}

    /// @name Integers
    /// Decimal, with blanks and a sign before the digits and anything behind them. What lies outside of 32 bits, or of
    /// 64 for the long long forms, reads as the nearest number that does not.
    ///
    /// Kept: the unsigned forms are stored as the signed number of the same bits, so 0xFFFFFFFF is "-1", and come back
    /// as they were. `long` counts as 32 bits on every system, so that a file means the same on each. The 16-bit
    /// getters take the low 16 bits.
    /// @{
    bool GetInteger(String const & section, String const & key, short & value) const;
    bool GetInteger(String const & section, String const & key, unsigned short & value) const;
    bool GetInteger(String const & section, String const & key, int & value) const;
    bool GetInteger(String const & section, String const & key, unsigned int & value) const;
    bool GetInteger(String const & section, String const & key, long & value) const;
    bool GetInteger(String const & section, String const & key, unsigned long & value) const;
    bool GetInteger(String const & section, String const & key, long long & value) const;
    bool GetInteger(String const & section, String const & key, unsigned long long & value) const;

    bool SetInteger(String const & section, String const & key, short value);
    bool SetInteger(String const & section, String const & key, unsigned short value);
    bool SetInteger(String const & section, String const & key, int value);
    bool SetInteger(String const & section, String const & key, unsigned int value);
    bool SetInteger(String const & section, String const & key, long value);
    bool SetInteger(String const & section, String const & key, unsigned long value);
    bool SetInteger(String const & section, String const & key, long long value);
    bool SetInteger(String const & section, String const & key, unsigned long long value);
    /// @}

    /// @name Booleans
    /// Stored as "1" and "0". Any integer but 0 is true. Kept: a word is no integer, so "true" reads as false.
    /// @{
    bool GetBoolean(String const & section, String const & key, bool & value) const;
    bool GetBoolean(String const & section, String const & key, int & value) const;
    bool SetBoolean(String const & section, String const & key, bool value);
    bool SetBoolean(String const & section, String const & key, int value);
    /// @}

    /// @name Floating-point numbers
    /// Stored with six decimals and a '.', whatever the locale; read as C's strtod reads, text behind the number being
    /// ignored. Kept: a text of more than 31 characters is cut to 31, so that numbers of 25 digits and more lose
    /// decimals first and then digits.
    /// @{
    bool GetFloat(String const & section, String const & key, double & value) const;
    bool SetFloat(String const & section, String const & key, double value);
    /// @}

    /// @name Geometry
    /// Several integers under the key with suffixes: "X" and "Y", or "Left", "Top", "Right" and "Bottom". The getters
    /// need all of them, and fill in all or nothing. Kept: a size has the suffixes of a point, so one of them under the
    /// same key takes the place of the other.
    /// @{
    bool GetPoint(String const & section, String const & key, tagPOINT & value) const;
    bool SetPoint(String const & section, String const & key, tagPOINT const & value);
    bool GetSize(String const & section, String const & key, tagSIZE & value) const;
    bool SetSize(String const & section, String const & key, tagSIZE const & value);
    bool GetRect(String const & section, String const & key, tagRECT & value) const;
    bool SetRect(String const & section, String const & key, tagRECT const & value);
    /// @}

    /// @name The profile file
    /// The header, if there is one, as bytes of the system's code page, and behind it sections as the platform's
    /// private profiles have them. A path without a folder means the Windows directory to the profiles but the current
    /// directory to the header: give whole paths.
    ///
    /// The two do not mirror each other. Kept, since files and programs rely on it:
    /// - Without a header a write leaves the sections alone that this object does not have, and a read looks at no
    ///   header, whatever the file begins with.
    /// - Files do not know case: of two sections that differ in case only, the second in order is what the file holds.
    /// - Nothing is escaped. A key that begins with ';' is written and never read; one with '=' is read up to its first
    ///   '='; a value with a line break comes back as its first line; blanks around keys and values are lost.
    /// - A section without keys is written, and a file with a section without any line cannot be read: kind 1. Comments
    ///   are lines, where the platform hands them out.
    /// - A section, and the list of all names, can be written in any length and read up to 32,764 characters.
    /// @{

    /// Merges a file into this object. A section of the file replaces the one of that name here as a whole; others
    /// stay. A file that is not there has no sections, which is no failure unless a header is looked for.
    ///
    /// Throws kind 0 if the file cannot be read, or has too many section names; kind 1 with an empty text if it does
    /// not begin with the header, before anything is changed, or if a section has no lines; kind 1 with the system's
    /// text if a section is too long. The sections before such a one are merged then, and this object's section of that
    /// name is gone.
    void ReadWindowsProfile(String const & path);

    /// Writes all sections, each in the place of the one of that name in the file. With a header, the file is emptied
    /// first. Throws kind 0; what was written before then stays.
    void WriteWindowsProfile(String const & path) const;
    /// @}

private:
    struct Implementation;

    Implementation * implementation;
};
