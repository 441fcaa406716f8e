#include <gtest/gtest.h>

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

#include <kvcore/platform/types.h>
#include <kvcore/streams/TypeName.h>

class TypeNameFoo
{
};

struct TypeNameBar
{
};

enum class TypeNameColor
{
    Red,
    Green
};

template <typename T>
class TypeNameBox
{
public:
    template <typename U>
    struct Part
    {
    };
};

template <typename... T>
struct TypeNameMap
{
};

template <auto value>
struct TypeNameGrid
{
};

namespace typenames
{

class Inner
{
};

namespace
{

class Hidden
{
};

} // namespace

} // namespace typenames

namespace
{

struct Text
{
    char const * given;
    char const * expected;
};

TEST(TypeName, IsTheSourceFormOnEveryTarget)
{
    using Foo = TypeNameFoo;
    struct
    {
        std::type_info const & type;
        char const * expected;
    } const cases[] = {
        {typeid(TypeNameFoo), "TypeNameFoo"},
        {typeid(TypeNameBar), "TypeNameBar"},
        {typeid(typenames::Inner), "typenames::Inner"},
        {typeid(typenames::Hidden), "typenames::`anonymous namespace'::Hidden"},
        {typeid(int), "int"},
        {typeid(TypeNameBox<int>), "TypeNameBox<int>"},
        {typeid(TypeNameBox<TypeNameBox<int>>), "TypeNameBox<TypeNameBox<int> >"},
        {typeid(TypeNameMap<>), "TypeNameMap<>"},
        {typeid(TypeNameMap<int, Foo>), "TypeNameMap<int,TypeNameFoo>"},
        {typeid(TypeNameMap<TypeNameBox<Foo>, TypeNameBox<typenames::Inner>>),
         "TypeNameMap<TypeNameBox<TypeNameFoo>,TypeNameBox<typenames::Inner> >"},
        {typeid(TypeNameBox<int>::Part<Foo>), "TypeNameBox<int>::Part<TypeNameFoo>"},
        {typeid(TypeNameBox<long long>), "TypeNameBox<__int64>"},
        {typeid(TypeNameBox<unsigned long long>), "TypeNameBox<unsigned __int64>"},
        {typeid(TypeNameBox<long>), "TypeNameBox<long>"},
        {typeid(TypeNameBox<unsigned short>), "TypeNameBox<unsigned short>"},
        {typeid(TypeNameBox<signed char>), "TypeNameBox<signed char>"},
        {typeid(TypeNameBox<long double>), "TypeNameBox<long double>"},
        {typeid(TypeNameBox<bool>), "TypeNameBox<bool>"},
        {typeid(TypeNameBox<char32_t>), "TypeNameBox<char32_t>"},
        {typeid(TypeNameBox<WCHAR>), "TypeNameBox<wchar_t>"},
        {typeid(TypeNameBox<wchar_t>), "TypeNameBox<wchar_t>"},
        {typeid(TypeNameBox<std::nullptr_t>), "TypeNameBox<std::nullptr_t>"},
        {typeid(TypeNameBox<int *>), "TypeNameBox<int *>"},
        {typeid(TypeNameBox<int **>), "TypeNameBox<int * *>"},
        {typeid(TypeNameBox<Foo const *>), "TypeNameBox<TypeNameFoo const *>"},
        {typeid(TypeNameBox<Foo const>), "TypeNameBox<TypeNameFoo const >"},
        {typeid(TypeNameBox<int * const>), "TypeNameBox<int * const>"},
        {typeid(TypeNameBox<Foo const volatile &>), "TypeNameBox<TypeNameFoo const volatile &>"},
        {typeid(TypeNameBox<int &&>), "TypeNameBox<int &&>"},
        {typeid(TypeNameBox<int *&>), "TypeNameBox<int * &>"},
        {typeid(TypeNameBox<TypeNameBox<int> const &>), "TypeNameBox<TypeNameBox<int> const &>"},
        {typeid(TypeNameBox<int[2][3]>), "TypeNameBox<int [2][3]>"},
        {typeid(TypeNameBox<int[]>), "TypeNameBox<int [0]>"},
        {typeid(TypeNameBox<int(*)[3]>), "TypeNameBox<int (*)[3]>"},
        {typeid(TypeNameBox<int()>), "TypeNameBox<int __cdecl(void)>"},
        {typeid(TypeNameBox<int(char, Foo const &)>), "TypeNameBox<int __cdecl(char,TypeNameFoo const &)>"},
        {typeid(TypeNameBox<void(char, ...)>), "TypeNameBox<void __cdecl(char,...)>"},
        {typeid(TypeNameBox<int (*)(char)>), "TypeNameBox<int (__cdecl*)(char)>"},
        {typeid(TypeNameBox<int (**)(char)>), "TypeNameBox<int (__cdecl**)(char)>"},
        {typeid(TypeNameBox<int (*[3])(char)>), "TypeNameBox<int (__cdecl* [3])(char)>"},
        {typeid(TypeNameBox<int * (*)(void (*)())>), "TypeNameBox<int * (__cdecl*)(void (__cdecl*)(void))>"},
        {typeid(TypeNameBox<int (*(*)(char))(short)>), "TypeNameBox<int (__cdecl*(__cdecl*)(char))(short)>"},
        {typeid(TypeNameBox<int(int Foo::*)>), "TypeNameBox<int __cdecl(int TypeNameFoo::*)>"},
        {typeid(TypeNameBox<int Foo::*>), "TypeNameBox<int TypeNameFoo::*>"},
        {typeid(TypeNameBox<int (TypeNameMap<int, Foo>::*)(char, ...)>),
         "TypeNameBox<int (__cdecl TypeNameMap<int,TypeNameFoo>::*)(char,...)>"},
        {typeid(TypeNameBox<TypeNameColor>), "TypeNameBox<TypeNameColor>"},
        {typeid(TypeNameGrid<3>), "TypeNameGrid<3>"},
        {typeid(TypeNameGrid<-3>), "TypeNameGrid<-3>"},
        {typeid(TypeNameGrid<3u>), "TypeNameGrid<3>"},
        {typeid(TypeNameGrid<3ull>), "TypeNameGrid<3>"},
        {typeid(TypeNameGrid<true>), "TypeNameGrid<1>"},
        {typeid(TypeNameGrid<false>), "TypeNameGrid<0>"},
        {typeid(TypeNameGrid<'A'>), "TypeNameGrid<65>"},
        {typeid(TypeNameGrid<static_cast<short>(-5)>), "TypeNameGrid<-5>"},
        {typeid(TypeNameGrid<TypeNameColor::Green>), "TypeNameGrid<1>"},
        {typeid(TypeNameGrid<static_cast<int *>(nullptr)>), "TypeNameGrid<0>"},
        {typeid(TypeNameGrid<18446744073709551615u>), "TypeNameGrid<-1>"},
        {typeid(std::ostream), "std::basic_ostream<char,std::char_traits<char> >"},
        {typeid(std::string), "std::basic_string<char,std::char_traits<char>,std::allocator<char> >"},
        {typeid(WString), "std::basic_string<wchar_t,std::char_traits<wchar_t>,std::allocator<wchar_t> >"},
        {typeid(TypeNameBox<std::string>),
         "TypeNameBox<std::basic_string<char,std::char_traits<char>,std::allocator<char> > >"},
    };
    for (auto const & c : cases)
    {
        EXPECT_EQ(GetTypeName(c.type), c.expected) << c.type.name();
        EXPECT_EQ(kv::detail::CachedTypeName(c.type), c.expected) << c.type.name();
    }
}

TEST(TypeName, AQualifiedArgumentHasABlankBehindIt)
{
    using Foo = TypeNameFoo;
    using typenames::Hidden;
    struct
    {
        std::type_info const & type;
        char const * expected;
    } const cases[] = {
        {typeid(TypeNameBox<int const>), "TypeNameBox<int const >"},
        {typeid(TypeNameBox<int volatile>), "TypeNameBox<int volatile >"},
        {typeid(TypeNameBox<int const volatile>), "TypeNameBox<int const volatile >"},
        {typeid(TypeNameBox<unsigned long const>), "TypeNameBox<unsigned long const >"},
        {typeid(TypeNameBox<long long const>), "TypeNameBox<__int64 const >"},
        {typeid(TypeNameBox<WCHAR const>), "TypeNameBox<wchar_t const >"},
        {typeid(TypeNameBox<std::nullptr_t const>), "TypeNameBox<std::nullptr_t const >"},
        {typeid(TypeNameBox<void const>), "TypeNameBox<void const >"},
        {typeid(TypeNameBox<Foo volatile>), "TypeNameBox<TypeNameFoo volatile >"},
        {typeid(TypeNameBox<typenames::Inner const>), "TypeNameBox<typenames::Inner const >"},
        {typeid(TypeNameBox<Hidden const>), "TypeNameBox<typenames::`anonymous namespace'::Hidden const >"},
        {typeid(TypeNameBox<TypeNameBox<int const> const>), "TypeNameBox<TypeNameBox<int const > const >"},
        {typeid(TypeNameBox<TypeNameBox<int> const>), "TypeNameBox<TypeNameBox<int> const >"},
        {typeid(TypeNameBox<TypeNameBox<int const>>), "TypeNameBox<TypeNameBox<int const > >"},
        {typeid(TypeNameMap<int const, Foo const>), "TypeNameMap<int const ,TypeNameFoo const >"},
        {typeid(TypeNameMap<int, Foo const, char>), "TypeNameMap<int,TypeNameFoo const ,char>"},
        {typeid(TypeNameBox<int const>::Part<Foo const>), "TypeNameBox<int const >::Part<TypeNameFoo const >"},
        {typeid(std::pair<int const, double>), "std::pair<int const ,double>"},
        {typeid(std::pair<Foo const, int const *>), "std::pair<TypeNameFoo const ,int const *>"},
        {typeid(std::vector<std::pair<int const, double>>),
         "std::vector<std::pair<int const ,double>,std::allocator<std::pair<int const ,double> > >"},
        {typeid(std::map<int, Foo>),
         "std::map<int,TypeNameFoo,std::less<int>,std::allocator<std::pair<int const ,TypeNameFoo> > >"},
        {typeid(std::map<Foo const *, int>),
         "std::map<TypeNameFoo const *,int,std::less<TypeNameFoo const *>,"
         "std::allocator<std::pair<TypeNameFoo const * const,int> > >"},
        {typeid(TypeNameBox<TypeNameBox<int const> const &>), "TypeNameBox<TypeNameBox<int const > const &>"},
        {typeid(TypeNameBox<int TypeNameBox<Foo const>::*>), "TypeNameBox<int TypeNameBox<TypeNameFoo const >::*>"},
        {typeid(TypeNameBox<int(TypeNameBox<Foo const>)>), "TypeNameBox<int __cdecl(TypeNameBox<TypeNameFoo const >)>"},
    };
    for (auto const & c : cases)
    {
        EXPECT_EQ(GetTypeName(c.type), c.expected) << c.type.name();
    }
}

TEST(TypeName, WhatIsConstBehindAStarOrInFrontOfMoreHasNoBlankBehindIt)
{
    using Foo = TypeNameFoo;
    struct
    {
        std::type_info const & type;
        char const * expected;
    } const cases[] = {
        {typeid(TypeNameBox<int const *>), "TypeNameBox<int const *>"},
        {typeid(TypeNameBox<int const * const>), "TypeNameBox<int const * const>"},
        {typeid(TypeNameBox<int * volatile>), "TypeNameBox<int * volatile>"},
        {typeid(TypeNameBox<int * const volatile>), "TypeNameBox<int * const volatile>"},
        {typeid(TypeNameBox<Foo const * const *>), "TypeNameBox<TypeNameFoo const * const *>"},
        {typeid(TypeNameBox<Foo const &>), "TypeNameBox<TypeNameFoo const &>"},
        {typeid(TypeNameBox<Foo const &&>), "TypeNameBox<TypeNameFoo const &&>"},
        {typeid(TypeNameBox<int * const &>), "TypeNameBox<int * const &>"},
        {typeid(TypeNameBox<int const Foo::*>), "TypeNameBox<int const TypeNameFoo::*>"},
        {typeid(TypeNameBox<int Foo::*const>), "TypeNameBox<int TypeNameFoo::* const>"},
        {typeid(TypeNameBox<int const[3]>), "TypeNameBox<int const [3]>"},
        {typeid(TypeNameBox<int const[]>), "TypeNameBox<int const [0]>"},
        {typeid(TypeNameBox<int const(&)[3]>), "TypeNameBox<int const (&)[3]>"},
        {typeid(TypeNameBox<int const(*)[3]>), "TypeNameBox<int const (*)[3]>"},
        {typeid(TypeNameBox<Foo const(Foo const &)>), "TypeNameBox<TypeNameFoo const __cdecl(TypeNameFoo const &)>"},
        {typeid(TypeNameBox<Foo const (*)(int)>), "TypeNameBox<TypeNameFoo const (__cdecl*)(int)>"},
        {typeid(TypeNameBox<int (*const)(char)>), "TypeNameBox<int (__cdecl*const)(char)>"},
        {typeid(int const *), "int const *"},
        {typeid(Foo const *), "TypeNameFoo const *"},
    };
    for (auto const & c : cases)
    {
        EXPECT_EQ(GetTypeName(c.type), c.expected) << c.type.name();
    }
}

TEST(TypeName, EnumerationsHaveTheirKeywordInFrontOfTheirOwnNameOnly)
{
    EXPECT_EQ(GetTypeName(typeid(TypeNameColor)), "enum TypeNameColor");
    EXPECT_EQ(GetTypeName(typeid(TypeNameColor *)), "enum TypeNameColor *");
    EXPECT_EQ(GetTypeName(typeid(TypeNameColor const * const *)), "enum TypeNameColor const * const *");
    EXPECT_EQ(kv::detail::CachedTypeName(typeid(TypeNameColor)), "enum TypeNameColor");
    // What a mangled name does not tell.
    EXPECT_EQ(GetTypeName(typeid(TypeNameBox<TypeNameColor const>)), "TypeNameBox<TypeNameColor const >");
}

struct TypeNameHolder
{
    int number;
};

TEST(TypeName, NullPointersAsArgumentsAreTheNumbersThatTheyAreStoredAs)
{
    using Holder = TypeNameHolder;
    EXPECT_EQ(GetTypeName(typeid(TypeNameGrid<static_cast<int *>(nullptr)>)), "TypeNameGrid<0>");
    EXPECT_EQ(GetTypeName(typeid(TypeNameGrid<static_cast<int Holder::*>(nullptr)>)), "TypeNameGrid<-1>");
}

TEST(TypeName, SourceFormReadsEveryShapeOfDemangledName)
{
    Text const cases[] = {
        {"std::__cxx11::basic_string<char>", "std::basic_string<char>"},
        {"std::_V2::error_category", "std::error_category"},
        {"std::__1::vector<int>", "std::vector<int>"},
        {"mine::__cxx11::List", "mine::__cxx11::List"},
        {"std::filesystem::__cxx11::path", "std::filesystem::path"},
        {"make[abi:cxx11]<int>", "make<int>"},
        {"Box<char16_t const*>", "Box<wchar_t const *>"},
        {"Box<A<B<C>>>", "Box<A<B<C> > >"},
        {"Box<unsigned long long, long long*>", "Box<unsigned __int64,__int64 *>"},
        {"Box<3ul, 4l, 5ll, 6ull>", "Box<3,4,5,6>"},
        {"Box<(ns::Color)2>", "Box<2>"},
        {"Box<(unsigned char)200>", "Box<200>"},
        {"Box<(int*)0>", "Box<0>"},
        {"Box<int (* const)(char)>", "Box<int (__cdecl*const)(char)>"},
        {"Box<int (* const*)(char)>", "Box<int (__cdecl*const *)(char)>"},
        {"Box<int (&)(char)>", "Box<int (__cdecl&)(char)>"},
        {"Box<int (Foo::*)(char)>", "Box<int (__thiscall Foo::*)(char)>"},
        {"Box<int (Foo::*)(char) const>", "Box<int (__thiscall Foo::*)(char)const >"},
        {"Box<int (Foo<int, char>::*)(char)>", "Box<int (__thiscall Foo<int,char>::*)(char)>"},
        {"Box<int ((anonymous namespace)::Foo::*)(char)>", "Box<int (__thiscall `anonymous namespace'::Foo::*)(char)>"},
        {"Box<int ((anonymous namespace)::Foo)>", "Box<int __cdecl(`anonymous namespace'::Foo)>"},
        {"Box<void () const>", "Box<void __cdecl(void)const >"},
        {"Box<void () &&>", "Box<void __cdecl(void)&& >"},
        {"Box<void () noexcept>", "Box<void __cdecl(void) noexcept>"},
        {"Box<int (*(*)(char)) [3]>", "Box<int (* (__cdecl*)(char))[3]>"},
        {"Box<void (Foo::*)() noexcept const>", "Box<void (__thiscall Foo::*)(void)const  noexcept>"},
        {"Box<int (**) [3]>", "Box<int (* *)[3]>"},
        {"Box<int (* const) [3]>", "Box<int (* const)[3]>"},
        {"Box<int (*(**) [3]) [4]>", "Box<int (* (* *)[3])[4]>"},
        {"Box<int (***)(char)>", "Box<int (__cdecl** *)(char)>"},
        {"Box<int (**&)(char)>", "Box<int (__cdecl** &)(char)>"},
        {"Box<int (** const)(char)>", "Box<int (__cdecl** const)(char)>"},
        {"Box<int (*(*) [3])(char)>", "Box<int (__cdecl*(*)[3])(char)>"},
        {"Box<int (** [3])(char)>", "Box<int (__cdecl** [3])(char)>"},
        {"Box<Foo const, int const* const, char volatile>", "Box<Foo const ,int const * const,char volatile >"},
        {"run(int) const::Local", "run(int)const ::Local"},
        {"main::{lambda(int, char)#1}", "main::{lambda(int, char)#1}"},
        {"Box<main::{lambda(int, char)#1}>", "Box<main::{lambda(int, char)#1}>"},
    };
    for (Text const & c : cases)
    {
        EXPECT_EQ(kv::detail::SourceForm(c.given), c.expected) << c.given;
    }
}

TEST(TypeName, AnArgumentThatIsNotUnderstoodStaysAsItStandsAmongOthers)
{
    Text const cases[] = {
        {"Box<&value, long long>", "Box<&value,__int64>"},
        {"Box<&(run(int, char)), int*>", "Box<&(run(int, char)),int *>"},
        {"Box<Name{char [4]{(char)97}}, A<B<C>>>", "Box<Name{char [4]{(char)97}},A<B<C> > >"},
    };
    for (Text const & c : cases)
    {
        EXPECT_EQ(kv::detail::SourceForm(c.given), c.expected) << c.given;
    }
}

TEST(TypeName, TextThatIsNoNameStaysAsItIs)
{
    std::string const cases[] = {"",          " ", "<",     ">",      "Box<",     "Box<int", "Box<int,",
                                 "Box<int>>", "(", "int (", "A::",    "::",       "*",       "12",
                                 "Box<(",     "{", "x y",   "int (*", "Box[abi:", "a b c",   "A<B>C"};
    for (std::string const & text : cases)
    {
        EXPECT_EQ(kv::detail::SourceForm(text), text);
    }
}

TEST(TypeName, TextCutAnywhereOrNestedAnyhowIsReadToItsEnd)
{
    std::string const name =
        "ns::Box<int (*(*)(A<3ul>, char))[3], (anonymous namespace)::B const*, {lambda()#1}>::C<&x, -1>";
    for (std::size_t length = 0; length < name.size(); ++length)
    {
        std::string const cut = name.substr(0, length);
        EXPECT_LE(kv::detail::SourceForm(cut).size(), 2 * name.size()) << cut;
    }
    for (char const * const piece : {"A<", "int (", "int (*(", "(", "{", "["})
    {
        std::string deep;
        for (int i = 0; i < 3000; ++i)
        {
            deep += piece;
        }
        EXPECT_EQ(kv::detail::SourceForm(deep), deep) << piece;
    }
}

TEST(StripTypeName, RemovesStructAndThenClassWhereverTheyStand)
{
    Text const cases[] = {
        {"class Outer<struct Inner>", "Outer<Inner>"},
        {"struct S<class Map<int,class Foo> >", "S<Map<int,Foo> >"},
        {"XPDib", "XPDib"},
        {"", ""},
        {"class ", ""},
        {"class", "class"},
        {"class class A", "A"},
        {"strustruct ct A", "A"},
        {"clastruct ss A", "A"},
        {"claclass ss A", "A"},
        {"strclass uct A", "struct A"},
        {"Box<Mystruct *>", "Box<My*>"},
        {"enum Color", "enum Color"},
        {"structclass A", "structA"},
    };
    for (Text const & c : cases)
    {
        EXPECT_EQ(StripTypeName(c.given), c.expected) << c.given;
    }
}

template <std::size_t... number>
std::vector<std::type_info const *> ManyTypes(std::index_sequence<number...>)
{
    return {&typeid(TypeNameGrid<static_cast<int>(number)>)...};
}

TEST(TypeName, CacheIsRightForMoreTypesThanItHoldsAndFromManyThreads)
{
    auto const types = ManyTypes(std::make_index_sequence<1500>());
    std::vector<int> wrong(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < wrong.size(); ++t)
    {
        threads.emplace_back(
            [&types, &wrong, t]
            {
                for (std::size_t i = 0; i < 3 * types.size(); ++i)
                {
                    std::size_t const n = (i * (2 * t + 1)) % types.size();
                    wrong[t] += kv::detail::CachedTypeName(*types[n]) != "TypeNameGrid<" + std::to_string(n) + ">";
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(wrong, std::vector<int>(4));
}

TEST(TypeName, CacheGivesOneStringPerType)
{
    std::string const & first = kv::detail::CachedTypeName(typeid(TypeNameFoo));
    EXPECT_EQ(&first, &kv::detail::CachedTypeName(typeid(TypeNameFoo)));
    EXPECT_NE(&first, &kv::detail::CachedTypeName(typeid(TypeNameBar)));
}

} // namespace
