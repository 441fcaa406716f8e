#pragma once

#include <list>

#include <kvcore/streams/ObjectFactory.h>

/// Several factories that act as one, asked in order. The chain neither owns nor counts them: they must live as long as
/// they are in it. Copying a chain copies the list.
///
/// Threads: no lock. Once the list is settled, any number of threads may read.
class KVCORE_API ObjectFactoryChain : public IObjectFactory, public virtual KVUnknown
{
public:
    ObjectFactoryChain();
    ~ObjectFactoryChain() override;

    /// Adds a factory at the end. Null is ignored. A factory may stand in the list more than once.
    void Append(IObjectFactory const * factory);
    /// Adds a factory at the front. Null is ignored.
    void Prepend(IObjectFactory const * factory);
    /// Removes every occurrence of `factory`. Null is ignored.
    void Remove(IObjectFactory const * factory);
    void Clear();

    /// The answer of the first factory alone; 0 for an empty chain.
    ///
    /// Kept: a primary name that only a later factory knows has no say. Identifiers of objects already written depend
    /// on it.
    int GetClassID(std::type_info const & type) const override;
    int GetClassID(char const * name) const override;
    /// The first answer that differs from `id`, else `id`.
    int GetRegisteredClassID(int id) const override;
    /// The first answer that is not null.
    IClassMethod const * GetClassMethods(int id) const override;
    IUnknown * CreateObject(std::type_info const & type) const override;
    IUnknown * CreateObject(char const * name) const override;
    IUnknown * CreateObject(int id) const override;

private:
    std::list<IObjectFactory const *> factories;
};
