#include <kvcore/streams/ObjectFactoryChain.h>

ObjectFactoryChain::ObjectFactoryChain() {}

ObjectFactoryChain::~ObjectFactoryChain() {}

void ObjectFactoryChain::Append(IObjectFactory const * factory)
{
    if (factory != nullptr)
    {
        factories.push_back(factory);
    }
}

void ObjectFactoryChain::Prepend(IObjectFactory const * factory)
{
    if (factory != nullptr)
    {
        factories.push_front(factory);
    }
}

void ObjectFactoryChain::Remove(IObjectFactory const * factory)
{
    factories.remove(factory);
}

void ObjectFactoryChain::Clear()
{
    factories.clear();
}

int ObjectFactoryChain::GetClassID(std::type_info const & type) const
{
    return factories.empty() ? 0 : factories.front()->GetClassID(type);
}

int ObjectFactoryChain::GetClassID(char const * name) const
{
    return factories.empty() ? 0 : factories.front()->GetClassID(name);
}

int ObjectFactoryChain::GetRegisteredClassID(int id) const
{
    for (IObjectFactory const * const factory : factories)
    {
        int const registered = factory->GetRegisteredClassID(id);
        if (registered != id)
        {
            return registered;
        }
    }
    return id;
}

IObjectFactory::IClassMethod const * ObjectFactoryChain::GetClassMethods(int id) const
{
    for (IObjectFactory const * const factory : factories)
    {
        IClassMethod const * const methods = factory->GetClassMethods(id);
        if (methods != nullptr)
        {
            return methods;
        }
    }
    return nullptr;
}

IUnknown * ObjectFactoryChain::CreateObject(std::type_info const & type) const
{
    return CreateObject(GetClassID(type));
}

IUnknown * ObjectFactoryChain::CreateObject(char const * name) const
{
    return CreateObject(GetClassID(name));
}

IUnknown * ObjectFactoryChain::CreateObject(int id) const
{
    auto const * const create = dynamic_cast<ICreateMethod const *>(GetClassMethods(id));
    return create != nullptr ? create->Create() : nullptr;
}
