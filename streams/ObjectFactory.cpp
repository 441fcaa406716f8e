#include <cstdint>
#include <string_view>

#include <kvcore/streams/ObjectFactory.h>
#include <kvcore/streams/TypeName.h>

IObjectFactory::IClassMethod::~IClassMethod() {}

ObjectFactory::ObjectFactory() {}

ObjectFactory::~ObjectFactory()
{
    for (auto const & entry : methods)
    {
        delete entry.second;
    }
}

bool ObjectFactory::Register(IObjectFactory::IClassMethod * method, char const * name, bool primary)
{
    if (method == nullptr)
    {
        return false;
    }
    int id = 0;
    if (name == nullptr)
    {
        id = GetClassID(method->GetType());
    }
    else
    {
        id = GetClassID(name);
        if (primary)
        {
            classNames[kv::detail::CachedTypeName(method->GetType())] = id;
        }
        else
        {
            aliases[id] = GetClassID(method->GetType());
        }
    }
    return id != 0 && methods.emplace(id, method).second;
}

int ObjectFactory::GetClassID(std::type_info const & type) const
{
    return GetClassID(kv::detail::CachedTypeName(type).c_str());
}

namespace
{

/// The hash that streams hold in place of a class's name. A byte above 0x7F counts as negative on every target.
int HashClassName(std::string_view name)
{
    std::uint32_t value = 0;
    for (char const c : name)
    {
        value += (value * 2) ^ static_cast<std::uint32_t>(static_cast<signed char>(c));
    }
    return static_cast<int>(value);
}

} // namespace

int ObjectFactory::GetClassID(char const * name) const
{
    std::string_view const key = name != nullptr ? name : "";
    auto const found = classNames.find(key);
    return found != classNames.end() ? found->second : HashClassName(key);
}

int ObjectFactory::GetRegisteredClassID(int id) const
{
    auto const found = aliases.find(id);
    return found != aliases.end() ? found->second : id;
}

IObjectFactory::IClassMethod const * ObjectFactory::GetClassMethods(int id) const
{
    auto const found = methods.find(id);
    return found != methods.end() ? found->second : nullptr;
}

IUnknown * ObjectFactory::CreateObject(std::type_info const & type) const
{
    return CreateObject(GetClassID(type));
}

IUnknown * ObjectFactory::CreateObject(char const * name) const
{
    return CreateObject(GetClassID(name));
}

IUnknown * ObjectFactory::CreateObject(int id) const
{
    auto const found = methods.find(id);
    if (found == methods.end())
    {
        return nullptr;
    }
    auto const * const create = dynamic_cast<ICreateMethod const *>(found->second);
    return create != nullptr ? create->Create() : nullptr;
}
