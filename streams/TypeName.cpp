#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include <kvcore/streams/TypeName.h>

namespace kv::detail
{

namespace
{

bool IsIdentifier(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$' ||
        static_cast<unsigned char>(c) >= 0x80;
}

bool IsOpening(char c)
{
    return c == '(' || c == '<' || c == '[' || c == '{';
}

bool IsClosing(char c)
{
    return c == ')' || c == '>' || c == ']' || c == '}';
}

/// A recursive-descent reader of demangled type names that writes each type in source form as it goes.
///
///     type       := base { " const" | " volatile" } declarator
///     base       := builtin words | name
///     name       := component { "::" component }
///     component  := identifier [ "<" arguments ">" ] [ "(" parameters ")" ]  |  "(anonymous namespace)"  |  "{...}"
///     declarator := { pointer } [ "(" declarator ")" ] { "(" parameters ")" | "[" size "]" }
///     pointer    := ( "*" | "&" | "&&" | name "::*" ) { " const" | " volatile" }
///
/// Every function returns false where the text is of another form, with the position anywhere. A template argument that
/// cannot be read is copied as it stands; a whole name that cannot be read stays the demangled text.
class SourceFormReader
{
public:
    explicit SourceFormReader(std::string_view demangled) : text(demangled) {}

    bool ReadAll(std::string & out)
    {
        return ReadType(out) && position == text.size();
    }

private:
    enum class Place
    {
        TemplateArgument,
        Elsewhere
    };

    /// What the brackets around a declarator are for: "int (*)(char)" or "int (*)[3]".
    enum class Group
    {
        None,
        Function,
        Array
    };

    bool ReadType(std::string & out, Place place = Place::Elsewhere);
    bool ReadBase(std::string & out);
    bool ReadBuiltin(std::string & out);
    bool ReadName(std::string & out);
    bool ReadComponent(std::string & out, bool inStandard);
    bool ReadArguments(std::string & out);
    bool ReadArgument(std::string & out);
    bool ReadLiteral(std::string & out);
    bool ReadDeclarator(std::string & out, Group group);
    bool ReadPointers(std::string & out, Group group, int & count);
    bool ReadSuffixes(std::string & out);
    bool ReadParameters(std::string & out);
    bool ReadArgumentAsItStands(std::string & out);
    void ReadQualifiers(std::string & out, std::string_view separator);

    bool AtEnd() const
    {
        return position >= text.size();
    }
    bool At(std::string_view token) const
    {
        return text.substr(std::min(position, text.size())).starts_with(token);
    }
    bool AtWord(std::string_view word) const;
    bool AtArgumentEnd() const
    {
        return At(",") || At(">") || At(" >");
    }
    bool AtGroup() const;
    Group GroupAtHand() const;
    bool Take(std::string_view token);
    bool TakeWord(std::string_view word);
    std::string_view PeekIdentifier() const;
    std::size_t MatchingBracket(std::size_t open) const;
    void SkipBlanks();

    // Names come out of the compiler, which nests far less; this bounds the stack for any other text.
    static constexpr int maximumDepth = 256;

    std::string_view text;
    std::size_t position = 0;
    int depth = 0;
    // An argument has no end. Those around it have none either, so none of them has to be gone through again.
    bool isCutOff = false;
};

bool SourceFormReader::AtWord(std::string_view word) const
{
    return At(word) && (position + word.size() == text.size() || !IsIdentifier(text[position + word.size()]));
}

bool SourceFormReader::Take(std::string_view token)
{
    if (!At(token))
    {
        return false;
    }
    position += token.size();
    return true;
}

bool SourceFormReader::TakeWord(std::string_view word)
{
    return AtWord(word) && Take(word);
}

std::string_view SourceFormReader::PeekIdentifier() const
{
    std::size_t end = position;
    while (end < text.size() && IsIdentifier(text[end]))
    {
        ++end;
    }
    return text.substr(position, end - position);
}

void SourceFormReader::SkipBlanks()
{
    while (Take(" "))
    {
    }
}

/// The position of the bracket that closes the one at `open`, or npos.
std::size_t SourceFormReader::MatchingBracket(std::size_t open) const
{
    int nesting = 0;
    for (std::size_t i = open; i < text.size(); ++i)
    {
        nesting += IsOpening(text[i]) ? 1 : IsClosing(text[i]) ? -1 : 0;
        if (nesting == 0)
        {
            return i;
        }
    }
    return std::string_view::npos;
}

bool SourceFormReader::ReadType(std::string & out, Place place)
{
    if (++depth > maximumDepth)
    {
        --depth;
        return false;
    }
    std::string base;
    bool read = ReadBase(base);
    if (read)
    {
        out += base;
        std::size_t const unqualified = out.size();
        ReadQualifiers(out, " ");
        std::size_t const qualified = out.size();
        read = ReadDeclarator(out, Group::None);
        // Those compilers print a qualifier with a blank for what follows it, and behind an argument of a template
        // nothing follows: "pair<int const ,double>". A pointer's own qualifiers come behind the "*", without one.
        if (place == Place::TemplateArgument && qualified != unqualified && out.size() == qualified)
        {
            out += ' ';
        }
    }
    --depth;
    return read;
}

/// Takes any of the qualifiers, each written with `separator` in front of the first.
void SourceFormReader::ReadQualifiers(std::string & out, std::string_view separator)
{
    for (;;)
    {
        std::size_t const start = position;
        SkipBlanks();
        char const * const word = TakeWord("const") ? "const" : TakeWord("volatile") ? "volatile" : nullptr;
        if (word == nullptr && !TakeWord("__restrict"))
        {
            position = start;
            return;
        }
        if (word != nullptr)
        {
            out += separator;
            out += word;
            separator = " ";
        }
    }
}

bool SourceFormReader::ReadBase(std::string & out)
{
    return TakeWord("decltype") ? Take("(nullptr)") && (out = "std::nullptr_t", true)
                                : ReadBuiltin(out) || ReadName(out);
}

bool SourceFormReader::ReadBuiltin(std::string & out)
{
    static constexpr std::string_view words[] = {"signed", "unsigned", "char", "short", "int", "long", "double"};
    std::size_t const start = position;
    std::size_t end = position;
    for (;;)
    {
        auto const word = std::find_if(std::begin(words), std::end(words), [this](auto w) { return AtWord(w); });
        if (word == std::end(words))
        {
            break;
        }
        position += word->size();
        end = position;
        if (!Take(" "))
        {
            break;
        }
    }
    position = end;
    out = text.substr(start, end - start);
    if (out.ends_with("long long"))
    {
        out.replace(out.size() - 9, 9, "__int64");
    }
    return end != start;
}

bool SourceFormReader::ReadName(std::string & out)
{
    // The demangler abbreviates what the mangling abbreviates.
    static constexpr std::string_view abbreviations[][2] = {
        {"std::string", "std::basic_string<char,std::char_traits<char>,std::allocator<char> >"},
        {"std::istream", "std::basic_istream<char,std::char_traits<char> >"},
        {"std::ostream", "std::basic_ostream<char,std::char_traits<char> >"},
        {"std::iostream", "std::basic_iostream<char,std::char_traits<char> >"},
        {"char16_t", "wchar_t"},
    };

    Take("::");
    std::string name;
    bool const inStandard = AtWord("std");
    for (;;)
    {
        if (!ReadComponent(name, inStandard))
        {
            return false;
        }
        if (!At("::") || At("::*"))
        {
            break;
        }
        position += 2;
        if (!name.empty() && !name.ends_with("::"))
        {
            name += "::";
        }
    }
    for (auto const & abbreviation : abbreviations)
    {
        name = name == abbreviation[0] ? abbreviation[1] : name;
    }
    out += name;
    return true;
}

/// One component of a name, with its template arguments. An inline namespace of the standard library adds nothing.
bool SourceFormReader::ReadComponent(std::string & out, bool inStandard)
{
    static constexpr std::string_view inlineNamespaces[] = {"__cxx11", "_V2", "__1"};

    if (Take("(anonymous namespace)"))
    {
        out += "`anonymous namespace'";
        return true;
    }
    if (At("{"))
    {
        std::size_t const close = MatchingBracket(position);
        if (close == std::string_view::npos)
        {
            return false;
        }
        out += text.substr(position, close + 1 - position);
        position = close + 1;
        return true;
    }
    std::string_view const identifier = PeekIdentifier();
    if (identifier.empty() || (identifier[0] >= '0' && identifier[0] <= '9'))
    {
        return false;
    }
    position += identifier.size();
    if (inStandard && At("::") &&
        std::find(std::begin(inlineNamespaces), std::end(inlineNamespaces), identifier) != std::end(inlineNamespaces))
    {
        return true;
    }
    out += identifier;
    while (At("[abi:"))
    {
        std::size_t const close = MatchingBracket(position);
        if (close == std::string_view::npos)
        {
            return false;
        }
        position = close + 1;
    }
    if (At("<") && !ReadArguments(out))
    {
        return false;
    }
    // A function that holds a local class: "run(int) const::Local".
    return !At("(") || (ReadParameters(out) && At("::"));
}

bool SourceFormReader::ReadArguments(std::string & out)
{
    Take("<");
    out += '<';
    for (bool first = true;; first = false)
    {
        SkipBlanks();
        if (Take(">"))
        {
            // Two closing brackets never touch, as in the days when they could not.
            out += out.back() == '>' ? " >" : ">";
            return true;
        }
        if (!first && !Take(","))
        {
            return false;
        }
        SkipBlanks();
        out += first ? "" : ",";
        if (!ReadArgument(out))
        {
            return false;
        }
    }
}

bool SourceFormReader::ReadArgument(std::string & out)
{
    std::size_t const start = position;
    std::size_t const written = out.size();
    if (ReadLiteral(out) && AtArgumentEnd())
    {
        return true;
    }
    position = start;
    out.resize(written);
    if (ReadType(out, Place::TemplateArgument) && AtArgumentEnd())
    {
        return true;
    }
    if (isCutOff)
    {
        return false;
    }
    position = start;
    out.resize(written);
    return ReadArgumentAsItStands(out);
}

/// A value: "3", "3ul", "-3", "true", "(char)65", "(Color)2", "(int*)0". Written as a plain number; a null pointer to a
/// data member is -1 there, because 0 is the first member's offset.
bool SourceFormReader::ReadLiteral(std::string & out)
{
    bool const isTrue = TakeWord("true");
    if (isTrue || TakeWord("false"))
    {
        out += isTrue ? '1' : '0';
        return true;
    }
    bool toMember = false;
    if (At("("))
    {
        std::size_t const close = MatchingBracket(position);
        if (close == std::string_view::npos)
        {
            return false;
        }
        toMember = text.substr(0, close).ends_with("::*");
        position = close + 1;
    }
    bool const negative = Take("-");
    std::uint64_t value = 0;
    std::from_chars_result const result = std::from_chars(text.data() + position, text.data() + text.size(), value);
    if (result.ec != std::errc())
    {
        return false;
    }
    position = static_cast<std::size_t>(result.ptr - text.data());
    while (At("u") || At("l"))
    {
        ++position;
    }
    if (toMember && value == 0)
    {
        out += "-1";
        return true;
    }
    // Numbers are stored as signed 64 bits in the names that this form comes from, so the largest come out negative.
    out += std::to_string(static_cast<std::int64_t>(negative ? 0 - value : value));
    return true;
}

bool SourceFormReader::ReadArgumentAsItStands(std::string & out)
{
    std::size_t const start = position;
    while (!AtEnd() && !AtArgumentEnd())
    {
        position = IsOpening(text[position]) ? MatchingBracket(position) : position;
        if (position == std::string_view::npos)
        {
            position = text.size();
            isCutOff = true;
            return false;
        }
        ++position;
    }
    out += text.substr(start, position - start);
    isCutOff = AtEnd();
    return !isCutOff && position != start;
}

/// True if the bracket here holds a declarator and not parameters: "(*)", "(&&)", "(*(char))", "(ns::Foo<int,
/// int>::*)". A parameter that is a pointer to a member has its type and a blank in front: "(int Foo::*)".
bool SourceFormReader::AtGroup() const
{
    if (!At("(") || At("(anonymous namespace)"))
    {
        return false;
    }
    std::size_t i = position + 1;
    while (i < text.size())
    {
        std::string_view const rest = text.substr(i);
        if (rest.starts_with("*") || rest.starts_with("&") || rest.starts_with("::*"))
        {
            return rest[0] == ':' || i == position + 1;
        }
        bool const opens = IsOpening(rest[0]);
        if (!opens && rest[0] != ':' && !IsIdentifier(rest[0]))
        {
            return false;
        }
        i = opens ? MatchingBracket(i) : i;
        i = i == std::string_view::npos ? i : i + 1;
    }
    return false;
}

SourceFormReader::Group SourceFormReader::GroupAtHand() const
{
    std::size_t const close = MatchingBracket(position);
    std::size_t const next = close == std::string_view::npos ? close : text.find_first_not_of(' ', close + 1);
    return next != std::string_view::npos && text[next] == '(' ? Group::Function : Group::Array;
}

bool SourceFormReader::ReadDeclarator(std::string & out, Group group)
{
    if (++depth > maximumDepth)
    {
        --depth;
        return false;
    }
    int pointers = 0;
    bool read = ReadPointers(out, group, pointers);
    // The pointer to a function touches what follows it, every other one has a blank behind it.
    bool const parted = group != Group::Function || pointers > 1;
    std::size_t const start = position;
    SkipBlanks();
    if (read && AtGroup())
    {
        Group const innerGroup = GroupAtHand();
        Take("(");
        SkipBlanks();
        bool const toMember = !At("*") && !At("&");
        std::string inner;
        std::string suffixes;
        read = ReadDeclarator(inner, innerGroup) && Take(")") && ReadSuffixes(suffixes);
        if (suffixes.starts_with('('))
        {
            bool const plain = !toMember || suffixes.find("...)") != std::string::npos;
            inner.insert(0, plain ? (toMember ? "__cdecl " : "__cdecl") : "__thiscall ");
        }
        out += parted ? " (" : "(";
        out += inner + ')' + suffixes;
    }
    else if (read && (At("(") || At("[")))
    {
        std::string suffixes;
        read = ReadSuffixes(suffixes);
        out += group != Group::None && suffixes.starts_with('(') ? "" : " ";
        out += suffixes.starts_with('(') ? "__cdecl" : "";
        out += suffixes;
    }
    else
    {
        position = start;
    }
    --depth;
    return read;
}

bool SourceFormReader::ReadPointers(std::string & out, Group group, int & count)
{
    for (;; ++count)
    {
        std::size_t const start = position;
        SkipBlanks();
        std::string pointer;
        if (Take("*"))
        {
            pointer = "*";
        }
        else if (Take("&&"))
        {
            pointer = "&&";
        }
        else if (Take("&"))
        {
            pointer = "&";
        }
        else if (!AtEnd() && (IsIdentifier(text[position]) || At("(anonymous namespace)")) && !AtWord("noexcept"))
        {
            if (!ReadName(pointer) || !Take("::*"))
            {
                return false;
            }
            pointer += "::*";
        }
        else
        {
            position = start;
            return true;
        }
        bool const toFunction = group == Group::Function && count == 0;
        bool const behindIt = group == Group::Function && count == 1 && !IsIdentifier(out.back());
        bool const first = group != Group::None && count == 0;
        ReadQualifiers(pointer, toFunction ? "" : " ");
        out.append(first || behindIt ? "" : " ").append(pointer);
    }
}

/// Any number of array bounds, or one list of parameters.
bool SourceFormReader::ReadSuffixes(std::string & out)
{
    SkipBlanks();
    if (At("("))
    {
        return ReadParameters(out);
    }
    while (At("["))
    {
        std::size_t const close = MatchingBracket(position);
        if (close == std::string_view::npos)
        {
            return false;
        }
        std::string_view const bound = text.substr(position + 1, close - position - 1);
        // An array of unknown bound is printed with the bound 0.
        out.append("[").append(bound.empty() ? "0" : bound).append("]");
        position = close + 1;
    }
    return true;
}

bool SourceFormReader::ReadParameters(std::string & out)
{
    if (!Take("("))
    {
        return false;
    }
    out += '(';
    if (Take(")"))
    {
        out += "void)";
    }
    else
    {
        do
        {
            SkipBlanks();
            out += out.back() == '(' ? "" : ",";
            if (!(Take("...") ? (out += "...", true) : ReadType(out)))
            {
                return false;
            }
        } while (Take(","));
        if (!Take(")"))
        {
            return false;
        }
        out += ')';
    }
    // The demangler has the word on either side of the qualifiers.
    bool const noexceptFirst = Take(" noexcept");
    std::string qualifiers;
    ReadQualifiers(qualifiers, "");
    out += qualifiers.empty() ? "" : qualifiers + ' ';
    std::size_t const start = position;
    SkipBlanks();
    if (Take("&&") || Take("&"))
    {
        out += text[position - 2] == '&' ? "&& " : "& ";
    }
    else
    {
        position = start;
    }
    if (noexceptFirst || Take(" noexcept"))
    {
        out += " noexcept";
    }
    return true;
}

} // namespace

std::string SourceForm(std::string_view demangled)
{
    std::string form;
    return SourceFormReader(demangled).ReadAll(form) ? form : std::string(demangled);
}

} // namespace kv::detail

std::string StripTypeName(std::string name)
{
    for (std::string_view const word : {std::string_view("struct "), std::string_view("class ")})
    {
        // As good as searching from the front after each removal: no word begins as it ends, so no two occurrences
        // share a character, and one goes as soon as its last character stands behind the others.
        std::size_t kept = 0;
        for (char const c : name)
        {
            name[kept++] = c;
            if (c == ' ' && std::string_view(name.data(), kept).ends_with(word))
            {
                kept -= word.size();
            }
        }
        name.resize(kept);
    }
    return name;
}

namespace
{

/// True for an enumeration and for pointers to one: their names have the keyword in front, which stripping leaves.
bool IsOfEnumeration(std::type_info const & type)
{
    std::type_info const * pointee = &type;
    while (auto const * const pointer = dynamic_cast<abi::__pointer_type_info const *>(pointee))
    {
        pointee = pointer->__pointee;
    }
    return dynamic_cast<abi::__enum_type_info const *>(pointee) != nullptr;
}

} // namespace

std::string GetTypeName(std::type_info const & type)
{
    int status = 0;
    std::unique_ptr<char, void (*)(void *)> const demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    std::string const form = kv::detail::SourceForm(demangled ? demangled.get() : type.name());
    return StripTypeName(IsOfEnumeration(type) ? "enum " + form : form);
}

namespace kv::detail
{

namespace
{

struct TypeNameEntry
{
    std::string mangled;
    std::string stripped;
};

/// Every type name ever asked for. Entries are never changed or freed, so that a reader needs no lock; there are no
/// more of them than the program has types.
TypeNameEntry const & InternTypeName(std::type_info const & type)
{
    static std::mutex mutex;
    // Never destroyed: factories may be asked while other statics die.
    static auto & entries = *new std::map<std::string, TypeNameEntry, std::less<>>;

    std::string const mangled = type.name();
    std::lock_guard const lock(mutex);
    auto found = entries.find(mangled);
    if (found == entries.end())
    {
        found = entries.emplace(mangled, TypeNameEntry{mangled, GetTypeName(type)}).first;
    }
    return found->second;
}

// By address of the type's information. The slot's name is compared on every hit: a module may be unloaded, and another
// type's information come to lie where it was.
constinit std::array<std::atomic<TypeNameEntry const *>, 1024> typeNameSlots = {};

} // namespace

std::string const & CachedTypeName(std::type_info const & type)
{
    std::uintptr_t const address = reinterpret_cast<std::uintptr_t>(&type) / alignof(std::type_info);
    std::atomic<TypeNameEntry const *> & slot = typeNameSlots[(address ^ (address >> 10)) % typeNameSlots.size()];
    TypeNameEntry const * entry = slot.load(std::memory_order_acquire);
    if (entry == nullptr || std::strcmp(entry->mangled.c_str(), type.name()) != 0)
    {
        entry = &InternTypeName(type);
        slot.store(entry, std::memory_order_release);
    }
    return entry->stripped;
}

} // namespace kv::detail
