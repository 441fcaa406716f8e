#pragma once

#include <cstdarg>
#include <cstddef>
#include <initializer_list>
#include <list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <kvcore/platform/export.h>
#include <kvcore/platform/types.h>

template <typename T>
class MemoryArray;
class ModuleBase;

/// The library's text: the standard wide string with numbers, encodings, comparison, lines and formatting added.
///
/// Text is UTF-16. One element is one 16-bit code unit, so a character above U+FFFF is two elements; only the UTF-8
/// conversions look at such pairs. The class adds no data and nothing virtual to its base: it copies deeply, its whole
/// base stays usable, and a function that takes `WString const &` takes a String as it stands.
///
/// Lengths and positions count elements. An `unsigned int` length of -1 (all ones) means the rest of the string, or a
/// length still to be measured, wherever a member says so.
///
/// Failures show in results, never as an exception of String's own: parsers return false with their output set to zero,
/// conversions and formatters return an empty string. Positions beyond the end raise std::out_of_range and impossible
/// lengths std::length_error, as in the base. A null text pointer is not accepted unless a member says so.
///
/// Threads: distinct objects may be used from any thread, one object by one thread at a time. Parsing and formatting
/// use a decimal point of '.' whatever locale the process has set, and disturb no other thread.
class KVCORE_API String : public WString
{
public:
    /// Orders maps and sets of String as the user's locale sorts: `left.Compare(right) < 0`.
    struct KVCORE_API LocaleLess
    {
        bool operator()(String const & left, String const & right) const;
    };

    /// @name Construction and assignment
    /// @{
    String() = default;
    String(String const &) = default;
    String(String &&) noexcept = default;
    String(WString const & text) : WString(text) {}
    String(WString && text) noexcept : WString(std::move(text)) {}
    /// The `count` elements of `text` from `pos`, or what is left of them; -1 is the rest. A `pos` beyond the size
    /// raises std::out_of_range.
    String(WString const & text, unsigned int pos, unsigned int count = unsigned(-1));
    /// The elements up to the terminating NUL.
    String(WCHAR const * text);
    /// Exactly `count` elements, NULs included. -1 is no length to be measured here: it raises std::length_error.
    String(WCHAR const * text, unsigned int count);
    /// The elements of `array`: half of its size, which is in bytes. An odd last byte is left out.
    String(MemoryArray<WCHAR> const & array);
    String(std::nullptr_t) = delete;
    ~String() = default;

    String & operator=(String const &) = default;
    String & operator=(String &&) noexcept = default;
    String & operator=(WString const & text);
    String & operator=(WString && text) noexcept;
    String const & operator=(WCHAR const * text);
    String const & operator=(MemoryArray<WCHAR> const & array);
    /// For `text = {}`, which would else mean a null pointer.
    String & operator=(std::initializer_list<WCHAR> elements);
    String & operator=(std::nullptr_t) = delete;

    /// `count` copies of `c`. A negative `count` raises std::length_error.
    static String FromChar(WCHAR c, int count);
    /// @}

    /// @name Appending
    /// Numbers are printed as FromNum prints them at radix 10, a `double` with six decimals and a '.' ("%lf"), a GUID
    /// as FromGUID prints it.
    /// @{
    String & operator<<(String const & text);
    String & operator<<(WCHAR const * text);
    String & operator<<(int value);
    String & operator<<(__int64 const & value);
    String & operator<<(double value);
    String & operator<<(GUID const & value);
    /// @}

    /// @name Numbers
    /// @{

    /// Reads the whole text as an integer in `radix` (2 to 36; digits above 9 are letters of either case). True with
    /// the number, or false with `value` set to 0. Accepted are leading spaces and tabs, one '+', one '-' behind it,
    /// digits, the end of the text or a NUL.
    ///
    /// Kept, since stored texts and callers depend on them:
    /// - No digits at all ("", "+", "-") read as 0.
    /// - Only the low byte of an element is looked at for a digit, so U+0130 is a '0'.
    /// - Numbers too large for the type wrap; the only overflow noticed is a step that makes the number smaller than it
    ///   was. The unsigned forms take a '-' too: "-5" is 0xFFFFFFFB.
    /// - Spaces and tabs behind the digits are accepted only if the number lies above the signed type's range:
    ///   "12 " fails, "4294967295 " does not.
    bool ParseNum(int & value, int radix = 10) const;
    bool ParseNum(unsigned int & value, int radix = 10) const;
    bool ParseNum(__int64 & value, int radix = 10) const;
    bool ParseNum(unsigned __int64 & value, int radix = 10) const;

    /// Reads the text up to its first space, tab or NUL behind leading spaces and tabs as a number: what `strtod` of
    /// the C standard takes (decimal and hexadecimal, "infinity", "nan(...)"), and "inf", "+inf", "-inf" and "nan", all
    /// in any case. Numbers too large are infinite and numbers too small are 0 or nearest to it. Text behind that first
    /// space is ignored. True, or false with 0.0: nothing there, something else behind the number, an element above
    /// 0x7F.
    bool ParseNum(double & value) const;
    /// The same, narrowed to the nearest `float`; what is too large for one is infinite.
    bool ParseNum(float & value) const;

    /// Reads decimal digits, and nothing else but a NUL or the end behind them. True with the number, or false with
    /// 0. Kept: only the low bytes of elements are looked at, for the digits and for the NUL, an empty text is 0, and
    /// overflow is noticed only where a step makes the number smaller.
    bool ParseChannelsNum(int & value) const;

    /// Prints `value` in `radix` (2 to 36; any other gives an empty string), with lower-case letters for digits above
    /// 9. A minus sign is printed for the signed forms at radix 10 only; other radices show the two's complement.
    static String FromNum(int value, int radix = 10);
    static String FromNum(unsigned int value, int radix = 10);
    static String FromNum(__int64 value, int radix = 10);
    static String FromNum(unsigned __int64 value, int radix = 10);

    /// Prints `value` rounded to `decimals` (0 to 60, others are brought into that range), without trailing zeros and
    /// never with an exponent: 1.5 with 3 decimals is "1.5", 2.0 is "2".
    static String FromNum(double value, int decimals = 6);
    /// @}

    /// @name Other values
    /// @{

    /// Reads "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}". True, or false with `value` all zero.
    bool ParseGUID(GUID & value) const;
    /// 38 characters, with braces and upper-case digits.
    static String FromGUID(GUID const & value);

    /// The date, and the time of day, in the form that the user's locale has for it. Empty for a date or time that
    /// does not exist.
    static String FromDate(SYSTEMTIME const & when, bool longDate = false);
    static String FromTime(SYSTEMTIME const & when, bool withSeconds = true);

    /// The system's text for an error code or HRESULT, up to its first line end; empty if the system has none.
    static String FromError(DWORD code);
    /// @}

    /// @name Encodings
    /// A `length` counts bytes; -1 measures up to the terminating NUL.
    /// @{

    /// The text in a code page of the system's. Malformed bytes become what the system makes of them; an unknown code
    /// page, or 2^31 - 1 bytes or more in another page than UTF-8, gives an empty string.
    static String FromMultibyte(unsigned int codePage, char const * text, unsigned int length = unsigned(-1));
    static String FromMultibyte(unsigned int codePage, std::string const & text);
    static String FromUtf8(char const * text, unsigned int length = unsigned(-1));
    static String FromUtf8(std::string const & text);
    /// In the system's own code page: UTF-8 on Linux, the ANSI code page on Windows.
    static String FromSystemMultibyte(char const * text, unsigned int length = unsigned(-1));
    static String FromSystemMultibyte(std::string const & text);
    /// Each byte becomes the element of its value.
    static String FromLatin1(char const * text, unsigned int length = unsigned(-1));
    static String FromLatin1(std::string const & text);

    /// The text in a code page of the system's, `flags` and `defaultChar` as WideCharToMultiByte takes them. Code page
    /// 65001 is Utf8(), which looks at neither. Empty on failure.
    std::string Multibyte(unsigned int codePage, DWORD flags = 0, char const * defaultChar = nullptr) const;
    /// In the system's own code page.
    std::string SystemMultibyte() const;
    /// In UTF-8. Kept: half of a surrogate pair without its other half is encoded as if it were a character, in three
    /// bytes, so that file names and stored texts that hold one survive.
    std::string Utf8() const;
    /// One byte for each element; elements above 0xFF (for Ascii above 0x7F) become `replacement`. `replaced`, if not
    /// null, receives how many did.
    std::string Latin1(char replacement = '?', int * replaced = nullptr) const;
    std::string Ascii(char replacement = '?', int * replaced = nullptr) const;
    /// @}

    /// @name Comparison and prefixes
    /// @{

    /// Negative, 0 or positive as this text sorts before, with or behind `other` in the user's locale. At most `count`
    /// elements of both are looked at; -1, as any negative number, looks at all.
    ///
    /// If the elements that both have are identical, the result is the difference of the lengths, which can be any
    /// integer. Kept: otherwise it is the locale's verdict (-1, 0 or 1) on the *whole* strings, `count` or not, and so
    /// texts that differ in case alone are judged by the locale also in CompareNoCase, while "abc" and "abcd" never
    /// are.
    int Compare(WString const & other, int count = -1) const;
    int CompareNoCase(WString const & other, int count = -1) const;

    /// Whether the string begins, or ends, with exactly these elements. A `length` of -1 measures the text.
    bool BeginsWith(WCHAR const * text, unsigned int length = unsigned(-1)) const;
    bool BeginsWith(WString const & text) const;
    bool EndsWith(WCHAR const * text, unsigned int length = unsigned(-1)) const;
    bool EndsWith(WString const & text) const;
    /// @}

    /// @name Parts and edits
    /// @{

    /// The first, or last, `count` elements; all of them for -1 or a count at or above the size. Kept: a tail shorter
    /// than the string ends at its first NUL, which Left and Mid carry along.
    String Left(unsigned int count) const;
    String Right(unsigned int count) const;
    /// The `count` elements from `pos`, or what is left of them. A `pos` beyond the size raises std::out_of_range.
    String Mid(unsigned int pos, unsigned int count = unsigned(-1)) const;

    /// Without the white space, the characters of `set`, or `c`, at the chosen ends.
    String Trim(bool left = true, bool right = true) const;
    String Trim(WString const & set, bool left = true, bool right = true) const;
    String Trim(WCHAR const * set, bool left = true, bool right = true) const;
    String Trim(WCHAR c, bool left = true, bool right = true) const;

    /// In the lower, or upper, case of the user's locale; unchanged if the system cannot map it.
    String LowerCase() const;
    String UpperCase() const;

    /// Replaces `what` by `with` from the left, at most `maxCount` times; what was inserted is not searched again.
    /// Kept: a `maxCount` of -1 is the size before the call, so an empty string stays empty. An empty `what` is found
    /// everywhere: copies of `with` come to stand before the first element.
    String & Replace(WString const & what, WString with, unsigned int maxCount = unsigned(-1));
    /// Removes every `c`. Kept: the result is always 0xFFFFFFFF, the position of the search that ended it, and no count
    /// of anything. Ignore it.
    unsigned int Remove(WCHAR c);
    /// Inserts `count` copies of `c` before the element at `pos`. A `pos` that is negative or beyond the size raises
    /// std::out_of_range, a negative `count` std::length_error.
    void Insert(int pos, WCHAR c, int count = 1);
    /// @}

    /// @name Lines and tokens
    /// Lines end in CR LF, or in LF if `crlf` is false.
    /// @{

    /// Appends `line` behind a line end. The line end is left out before the first text; a first line that is empty
    /// is a line end alone. Empty lines are added only if `allowEmpty`.
    void AddLine(String const & line, bool crlf = true, bool allowEmpty = true);
    /// The lines, one more than line ends; 0 for an empty string. Kept: "a\n" has 2.
    unsigned int GetNumLines(bool crlf = true) const;
    /// Stores lines `first` to `last`, counted from 0, in `out`. A negative `first` is 0, a negative `last` the last
    /// line. What follows the last line end counts only if it is not empty or `out` has a line already. With `crlf`
    /// false, a line that ends in CR LF loses both; Kept: text behind the last line end keeps a CR.
    void GetLines(std::vector<String> & out, int first = 0, int last = -1, bool crlf = true) const;
    /// The same lines in one string, joined by CR LF, or by LF if `joinCrlf` is false.
    String GetLines(int first = 0, int last = -1, bool crlf = true, bool joinCrlf = true) const;

    /// The items in order with `separator` between them.
    static String Join(std::list<String> const & items, String separator);
    static String Join(std::vector<String> const & items, String separator);

    /// The pieces between the elements of `separators`, each of which separates by itself; empty pieces are left out
    /// unless `keepEmpty`. With a `maxParts` other than 0, piece number `maxParts` is the whole rest, separators
    /// included. An empty string has no pieces, even with `keepEmpty`.
    std::list<String> Split(String const & separators, bool keepEmpty = false, int maxParts = 0) const;
    std::list<String> Split(WCHAR separator, bool keepEmpty = false, int maxParts = 0) const;
    /// @}

    /// @name Formatting
    /// The printf forms take the conversions of the Windows C run-time library's wide printf: %s and %c are wide, %hs
    /// and %S narrow. The text ends at its first NUL. A format that the run-time library gives up on yields an empty
    /// string. The argument list is not consumed. Templates and arguments may be parts of the string that Format
    /// assigns to.
    /// @{
    static String FromFormatV(WCHAR const * format, std::va_list arguments);
    static String FromFormatV(WString const & format, std::va_list arguments);
    static String FromFormat(WCHAR const * format, ...);
    template <typename Text, typename... Arguments>
    requires std::is_base_of_v<WString, Text>
    static String FromFormat(Text const & format, Arguments... arguments)
    {
        return FromFormat(format.c_str(), arguments...);
    }
    String & Format(WCHAR const * format, ...);
    template <typename Text, typename... Arguments>
    requires std::is_base_of_v<WString, Text> String & Format(Text const & format, Arguments... arguments)
    {
        return Format(format.c_str(), arguments...);
    }

    /// Message templates with the inserts %1, %2 ... of FormatMessageW; empty on failure.
    static String FromFormatMessageV(WCHAR const * format, std::va_list arguments);
    static String FromFormatMessageV(WString const & format, std::va_list arguments);
    static String FromFormatMessage(WCHAR const * format, ...);
    template <typename Text, typename... Arguments>
    requires std::is_base_of_v<WString, Text>
    static String FromFormatMessage(Text const & format, Arguments... arguments)
    {
        return FromFormatMessage(format.c_str(), arguments...);
    }
    /// @}

    /// @name Texts of a module's string table
    /// As the above, with text `id` of the module as the template; a text that is missing is an empty template. The
    /// module must be one that was initialised.
    /// @{
    static String FromFormatV(ModuleBase * module, unsigned int id, std::va_list arguments);
    static String FromFormat(ModuleBase * module, unsigned int id, ...);
    static String FromFormatMessageV(ModuleBase * module, unsigned int id, std::va_list arguments);
    static String FromFormatMessage(ModuleBase * module, unsigned int id, ...);
    /// Assigns the message.
    void FormatMessageW(ModuleBase * module, unsigned int id, ...);
    /// Appends the message as a line behind CR LF.
    void AddMessage(ModuleBase * module, unsigned int id, ...);
    /// Assigns the text itself.
    void LoadStringW(unsigned int id, ModuleBase * module);
    /// @}
};

static_assert(sizeof(String) == sizeof(WString), "String adds no data to the standard string");
