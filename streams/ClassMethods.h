#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <typeinfo>

#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/Serializing.h>

// Method objects for factories, made from a class, and one-line registration:
//
//     ObjectFactory factory;
//     RegisterType<Clip>(factory);                               // created, read and written
//     RegisterType<ValueClassMethods<Format>>(factory);          // a value class: equal objects are stored once
//     RegisterTypeAs<Source>(factory, "MediaSource");            // known in streams as "MediaSource"
//     RegisterFormerName<Clip>(factory, "OldClip");              // old streams have clips under this name
//
// A class derives from KVUnknown and ISerializable:
//
//     class Clip : public KVUnknown, public ISerializable { ... };

namespace kv::detail
{

/// Apart from the short way below, which is to be short.
template <typename T>
[[gnu::noinline]] T * SearchObject(IUnknown * object)
{
    if (object != nullptr)
    {
        // A class that several modules know has its type information in each.
        IUnknown & known = *object;
        return typeid(known) == typeid(T) ? static_cast<T *>(dynamic_cast<void *>(object)) : dynamic_cast<T *>(object);
    }
    return nullptr;
}

} // namespace kv::detail

/// The object of class T behind `object`; null if it is of another class or null. `T` may be the object's own class or
/// a base of it.
template <typename T>
T * ObjectCast(IUnknown * object)
{
    // IUnknown is a virtual base, so a downcast has to search the class's bases, which costs more than all the rest of
    // copying a small object. An object that is exactly a T is found by the address of the whole object.
    if (object != nullptr)
    {
        IUnknown & known = *object;
        if (&typeid(known) == &typeid(T))
        {
            return static_cast<T *>(dynamic_cast<void *>(object));
        }
    }
    return kv::detail::SearchObject<T>(object);
}

/// Method object of a class whose objects streams can write but not create, such as an abstract one.
template <typename T>
class AbstractClassMethods : public IObjectFactory::IClassMethod, public kv::detail::ISerializableCast
{
public:
    std::type_info const & GetType() const override
    {
        return typeid(T);
    }

    ISerializable * ToSerializable(IUnknown * object) const override
    {
        if constexpr (std::derived_from<T, ISerializable>)
        {
            if (T * const found = ObjectCast<T>(object))
            {
                return found;
            }
        }
        return dynamic_cast<ISerializable *>(object);
    }
};

/// Method object of a class with a default constructor. Derive from it and override Create for a class that comes into
/// being in another way.
template <typename T>
class ClassMethods : public AbstractClassMethods<T>, public IObjectFactory::ICreateMethod
{
public:
    IUnknown * Create() const override
    {
        return new T;
    }
};

/// Method object of a class whose objects come from a function: `create()` gives a T (or any IUnknown) with a reference
/// for the caller. A class that keeps a single instance gives either a new object, whose Read then throws
/// SerializingInputStream::SingeltonObjectExistsException, or the instance itself with a reference added, whose Read
/// then reads into it.
template <typename T, auto create>
class ClassMethodsUsing : public AbstractClassMethods<T>, public IObjectFactory::ICreateMethod
{
public:
    IUnknown * Create() const override
    {
        return create();
    }
};

/// Method object of a value class: copies by its copy constructor and assignment, equality by its operator==. `Base`
/// creates the objects. Derive from it and override Clone, Copy or Compare where these are not what a stream should
/// take for the value.
///
/// Every distinct value of the class that a stream writes is compared with all before it, in order. So value classes
/// are for values that repeat often and differ seldom, and their operator== should be quick to say no.
template <typename T, typename Base = ClassMethods<T>>
class ValueClassMethods : public Base, public IObjectFactory::ICopyCompareMethod, public kv::detail::IValueSearch
{
public:
    /// Throws std::bad_cast if `object` is no T.
    IUnknown * Clone(IUnknown * object) const override
    {
        return new T(Value(object));
    }
    /// Throws std::bad_cast if one of the two is no T.
    void Copy(IUnknown * from, IUnknown * to) const override
    {
        Value(to) = Value(from);
    }
    /// False if one of the two is no T.
    bool Compare(IUnknown * a, IUnknown * b) const override
    {
        T const * const left = ObjectCast<T>(a);
        T const * const right = ObjectCast<T>(b);
        return left != nullptr && right != nullptr && *left == *right;
    }

    kv::detail::WrittenValue const *
    FindEqual(IUnknown * object, kv::detail::WrittenValue const * values, std::size_t count) const override
    {
        // A derived class may have its own Compare. Otherwise the object is cast once and not for every value.
        T const * const plain = typeid(*this) == typeid(ValueClassMethods) ? ObjectCast<T>(object) : nullptr;
        for (kv::detail::WrittenValue const * value = values; value != values + count; ++value)
        {
            if (plain != nullptr ? EqualsClone(*plain, value->clone) : this->Compare(object, value->clone))
            {
                return value;
            }
        }
        return nullptr;
    }

private:
    static bool EqualsClone(T const & object, IUnknown * clone)
    {
        T const * const value = ObjectCast<T>(clone);
        return value != nullptr && object == *value;
    }

    static T & Value(IUnknown * object)
    {
        T * const value = ObjectCast<T>(object);
        return value != nullptr ? *value : throw std::bad_cast();
    }
};

namespace kv::detail
{

/// The method object for T: T itself if it is one, else what suits the class.
template <typename T>
using MethodsFor = std::conditional_t<
    std::derived_from<T, IObjectFactory::IClassMethod>, T,
    std::conditional_t<std::is_abstract_v<T>, AbstractClassMethods<T>, ClassMethods<T>>>;

template <typename T>
bool RegisterMethodsFor(ObjectFactory & factory, char const * name, bool primary)
{
    auto methods = std::make_unique<MethodsFor<T>>();
    bool const isNew = factory.Register(methods.get(), name, primary);
    if (isNew)
    {
        // The factory's from here on.
        static_cast<void>(methods.release());
    }
    return isNew;
}

} // namespace kv::detail

/// Registers a class under its own name. T is the class, which then has a default constructor or is abstract, or one of
/// the method object classes above, or one derived from them or from IObjectFactory::IClassMethod. False if the
/// identifier is taken already; then nothing changes.
template <typename T>
bool RegisterType(ObjectFactory & factory)
{
    return kv::detail::RegisterMethodsFor<T>(factory, nullptr, false);
}

/// Registers a class under a stated name, by which streams know it from now on. T as for RegisterType. False if the
/// identifier of the name is taken already; the class is known by the name all the same.
template <typename T>
bool RegisterTypeAs(ObjectFactory & factory, char const * name)
{
    return kv::detail::RegisterMethodsFor<T>(factory, name, true);
}

/// Makes a former name of a class known, for old streams. The class itself is registered as well, before or after. T as
/// for RegisterType, and the same as was given there. False if the identifier of the name is taken already; the name
/// stands for the class all the same.
template <typename T>
bool RegisterFormerName(ObjectFactory & factory, char const * name)
{
    return kv::detail::RegisterMethodsFor<T>(factory, name, false);
}
