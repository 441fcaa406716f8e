#pragma once

#include <functional>
#include <map>
#include <string>
#include <typeinfo>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/core/NotCopyable.h>
#include <kvcore/platform/export.h>

/// Maps classes to numbers and numbers to creators. The number of a class is what a serialized stream holds in place of
/// a type.
///
/// A class identifier is a signed 32-bit number computed from the class's name; nothing assigns or stores it. 0 is
/// never a class. Serializing streams ask a factory once per class and keep the answers, so registration must be
/// finished before a stream uses the factory.
///
/// Failures: no operation throws for an unknown class; identifiers always have a value, method objects and new objects
/// are null. Running out of memory is std::bad_alloc.
///
/// Threads: no lock. Once registration is finished, any number of threads may read.
class KVCORE_API IObjectFactory : public virtual IUnknown
{
public:
    /// What every registered class gives the factory: one object per class, its method object. Whatever else the class
    /// offers stands beside this interface in the same object and is reached by dynamic_cast.
    class KVCORE_API IClassMethod
    {
    public:
        virtual ~IClassMethod();
        /// The class.
        virtual std::type_info const & GetType() const = 0;
    };

    /// Beside IClassMethod for a class whose objects can be created. Without it a class cannot be read from a stream.
    class KVCORE_API ICreateMethod
    {
    public:
        /// A new object with a count of 1, which is the caller's reference.
        virtual IUnknown * Create() const = 0;

    protected:
        ~ICreateMethod() = default;
    };

    /// Beside IClassMethod for a value class: one of whose equal objects a stream holds only the first.
    class KVCORE_API ICopyCompareMethod
    {
    public:
        /// A new object equal to `object` with a count of 1, which is the caller's reference.
        virtual IUnknown * Clone(IUnknown * object) const = 0;
        /// Gives `to` the value of `from`.
        virtual void Copy(IUnknown * from, IUnknown * to) const = 0;
        /// True if the two are equal.
        virtual bool Compare(IUnknown * a, IUnknown * b) const = 0;

    protected:
        ~ICopyCompareMethod() = default;
    };

    /// The identifier of a class. It has one whether or not the class is registered.
    virtual int GetClassID(std::type_info const & type) const = 0;
    /// The identifier of the class of this name.
    virtual int GetClassID(char const * name) const = 0;
    /// The identifier by which a class is known today, for one that may be former; `id` itself if it is not.
    virtual int GetRegisteredClassID(int id) const = 0;
    /// The method object of a class, which stays the factory's; null if the class is not registered.
    virtual IClassMethod const * GetClassMethods(int id) const = 0;
    /// A new object, whose one reference is the caller's; null if the class is not registered or cannot be created.
    virtual IUnknown * CreateObject(std::type_info const & type) const = 0;
    virtual IUnknown * CreateObject(char const * name) const = 0;
    virtual IUnknown * CreateObject(int id) const = 0;

protected:
    ~IObjectFactory() = default;
};

/// The factory with which a client registers its classes. `streams/ClassMethods.h` has templates for the method objects
/// and shorter ways to register.
class KVCORE_API ObjectFactory : public IObjectFactory, public virtual KVUnknown, public NotCopyable
{
public:
    ObjectFactory();
    /// Deletes every method object that it owns.
    ~ObjectFactory() override;

    /// Registers the class of `method`, and takes ownership of `method` if the result is true.
    ///
    /// - `name` null: under the identifier of the class's own name.
    /// - `name` with `primary`: under the identifier of `name`, and from now on the class's own name computes to it
    /// too.
    ///   So a stored identifier stays when a class is renamed, or when targets print its name in different ways.
    /// - `name` without `primary`: `name` is a former name of the class, whose old records are read as the class of
    ///   today. It needs a method object of its own, beside that of the name of today.
    ///
    /// False if the identifier has a method object already, which stays, or is 0, or `method` is null.
    ///
    /// Kept: what `name` says is taken in even where the result is false, as existing registration code relies on
    /// registering a class and its names in any order. Only a null `method` changes nothing.
    bool Register(IObjectFactory::IClassMethod * method, char const * name, bool primary);

    int GetClassID(std::type_info const & type) const override;
    /// Kept: streams hold these numbers. The identifier given by a primary name, else value = value + (value * 2 ^ c)
    /// for each byte c of the name taken as a signed char, from 0 and wrapping at 32 bits. "XPDib" gives 0x00001E75, an
    /// empty name (and a null one) 0.
    int GetClassID(char const * name) const override;
    int GetRegisteredClassID(int id) const override;
    IClassMethod const * GetClassMethods(int id) const override;
    IUnknown * CreateObject(std::type_info const & type) const override;
    IUnknown * CreateObject(char const * name) const override;
    IUnknown * CreateObject(int id) const override;

private:
    std::map<int, int> aliases;
    std::map<std::string, int, std::less<>> classNames;
    std::map<int, IClassMethod *> methods;
};
