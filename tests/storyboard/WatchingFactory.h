#pragma once

#include <map>
#include <memory>
#include <vector>

#include <kvcore/examples/storyboard/ProjectStream.h>
#include <kvcore/streams/ObjectFactory.h>

namespace Storyboard
{

/// Makes a project's objects as ProjectFactory does, and keeps a reference to each. So a test can see, when everybody
/// else should be done with them, whether somebody has kept one reference too many or released one too many.
class WatchingFactory : public IObjectFactory, public KVUnknown
{
public:
    ~WatchingFactory() override
    {
        ReleaseAll();
    }

    /// Releases all that was made; the result is how many objects somebody else still refers to, and not one of the
    /// others among them.
    std::size_t ReleaseAll()
    {
        // An object may refer to others, so it has to go before these can.
        std::size_t before = 0;
        do
        {
            before = objects.size();
            std::erase_if(
                objects,
                [](IUnknown * object)
                {
                    object->AddRef();
                    bool const isOurs = object->Release() == 1;
                    return isOurs && object->Release() == 0;
                });
        } while (objects.size() != before);
        objects.clear(); // what is left leaks, and is to be seen as a leak by others, too
        return before;
    }

    std::size_t Made() const
    {
        return objects.size();
    }

    int GetClassID(std::type_info const & type) const override
    {
        return plain.GetClassID(type);
    }
    int GetClassID(char const * name) const override
    {
        return plain.GetClassID(name);
    }
    int GetRegisteredClassID(int id) const override
    {
        return plain.GetRegisteredClassID(id);
    }
    IUnknown * CreateObject(std::type_info const & type) const override
    {
        return plain.CreateObject(type);
    }
    IUnknown * CreateObject(char const * name) const override
    {
        return plain.CreateObject(name);
    }
    IUnknown * CreateObject(int id) const override
    {
        return plain.CreateObject(id);
    }

    IClassMethod const * GetClassMethods(int id) const override
    {
        std::unique_ptr<IClassMethod> & known = methods[id];
        IClassMethod const * const original = plain.GetClassMethods(id);
        if (!known && original)
        {
            if (dynamic_cast<ICopyCompareMethod const *>(original))
            {
                known = std::make_unique<ValueMethods>(*original, objects);
            }
            else
            {
                known = std::make_unique<Methods>(*original, objects);
            }
        }
        return known.get();
    }

private:
    class Methods : public IClassMethod, public ICreateMethod
    {
    public:
        Methods(IClassMethod const & originalMethods, std::vector<IUnknown *> & watched)
            : original(originalMethods), objects(watched)
        {
        }

        std::type_info const & GetType() const override
        {
            return original.GetType();
        }
        IUnknown * Create() const override
        {
            return Watch(dynamic_cast<ICreateMethod const &>(original).Create());
        }

    protected:
        IUnknown * Watch(IUnknown * object) const
        {
            object->AddRef();
            objects.push_back(object);
            return object;
        }

        IClassMethod const & original;
        std::vector<IUnknown *> & objects;
    };

    class ValueMethods : public Methods, public ICopyCompareMethod
    {
    public:
        using Methods::Methods;

        IUnknown * Clone(IUnknown * object) const override
        {
            return Watch(Values().Clone(object));
        }
        void Copy(IUnknown * from, IUnknown * to) const override
        {
            Values().Copy(from, to);
        }
        bool Compare(IUnknown * a, IUnknown * b) const override
        {
            return Values().Compare(a, b);
        }

    private:
        ICopyCompareMethod const & Values() const
        {
            return dynamic_cast<ICopyCompareMethod const &>(original);
        }
    };

    IObjectFactory const & plain = ProjectFactory();
    mutable std::map<int, std::unique_ptr<IClassMethod>> methods;
    mutable std::vector<IUnknown *> objects;
};

} // namespace Storyboard
