#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

#include <kvcore/platform/export.h>

/// The name of a type as class identifiers hash it: the source form that the type information of 32-bit x86 Windows
/// compilers prints, without the words "class " and "struct ". On a compiler whose type information is mangled the form
/// is rebuilt, so that an identifier is the same on every target: "ns::Map<int,ns::List<__int64> >", "Foo const *",
/// "Grid<3>", "enum Color". An argument of a template that is const or volatile itself has a blank behind it:
/// "std::pair<int const ,double>", and "List<Foo * const>" has none, for there the pointer is what is const.
///
/// What a mangled name does not tell is written the way this list says; a class with such a name that must agree with
/// streams written elsewhere is registered under a stated name (`ObjectFactory::Register`):
/// - an enumeration or union as template argument has no keyword in front ("Box<Color>", not "Box<enum Color>");
/// - `long` is "long" at any width, so a template over `std::int64_t` or `std::size_t` depends on the target;
/// - `char16_t` is "wchar_t", because it is the wide character where `wchar_t` is not 16 bits wide: a template over
///   WCHAR has one identifier everywhere, while one over `char16_t` and one over `wchar_t` share it;
/// - a class local to a function, a lambda, an unnamed class, and a template over an object's address or over a value
///   of class type keep the demangled text.
///
/// Any thread.
KVCORE_API std::string GetTypeName(std::type_info const & type);

/// Removes every occurrence of "struct " from `name`, wherever it stands, then every occurrence of "class ". After each
/// removal the search starts again from the front, so words that only come together by a removal go as well.
///
/// Kept: stored streams hold hashes of the result, so this rule can never change.
KVCORE_API std::string StripTypeName(std::string name);

namespace kv::detail
{

/// The source form of a name in the form that `abi::__cxa_demangle` gives. A part that is not understood is kept as it
/// stands.
KVCORE_API std::string SourceForm(std::string_view demangled);

/// `GetTypeName` from a process-wide cache. The reference stays valid for the life of the process.
KVCORE_API std::string const & CachedTypeName(std::type_info const & type);

} // namespace kv::detail
