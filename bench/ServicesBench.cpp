// Services by their identifier, beside a hash table of the standard library under a mutex.

#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <kvcore/core/KVUnknown.h>
#include <kvcore/frame/ObjectServices.h>

#include "Jobs.h"

namespace
{

constexpr std::size_t serviceCount = 100;
constexpr std::size_t lookUps = 10000;

struct HashGuid
{
    std::size_t operator()(GUID const & id) const
    {
        std::uint64_t halves[2];
        std::memcpy(halves, &id, sizeof halves);
        return static_cast<std::size_t>(halves[0] ^ halves[1] * 0x9E3779B97F4A7C15u);
    }
};

/// The same service in the least that does the job: found, asked for its interface by a virtual call.
class Peer
{
public:
    void Register(GUID const & id, IUnknown * object)
    {
        std::lock_guard const guard(mutex);
        services[id] = object;
    }
    HRESULT Get(GUID const & id, GUID const & iid, void ** result)
    {
        std::lock_guard const guard(mutex);
        auto const found = services.find(id);
        *result = nullptr;
        return found != services.end() ? found->second->QueryInterface(iid, result) : HRESULT(-1);
    }

private:
    std::mutex mutex;
    std::unordered_map<GUID, IUnknown *, HashGuid> services;
};

/// The identifiers in the order in which they are asked for; the services stay registered, as those of a process do.
struct Services
{
    Services()
    {
        auto random = bench::Random();
        std::vector<GUID> ids(serviceCount);
        for (GUID & id : ids)
        {
            std::uint64_t const halves[] = {random(), random()};
            std::memcpy(&id, halves, sizeof id);
            IUnknown * const object = new KVUnknown;
            ObjectServices::RegisterService(id, object);
            peer.Register(id, object);
        }
        for (std::size_t i = 0; i < lookUps; ++i)
        {
            asked.push_back(ids[random() % ids.size()]);
        }
    }

    Peer peer;
    std::vector<GUID> asked;
};

/// Asks for all and gives the sum of what the objects answered.
template <class Get>
std::uintptr_t AskAll(std::vector<GUID> const & asked, Get get)
{
    std::uintptr_t sum = 0;
    for (GUID const & id : asked)
    {
        IUnknown * found = nullptr;
        if (get(id, &found) == 0)
        {
            sum += reinterpret_cast<std::uintptr_t>(found);
            found->Release();
        }
    }
    return sum;
}

void AddJobs()
{
    auto const services = std::make_shared<Services>();
    auto const ours = [services]
    {
        return AskAll(
            services->asked, [](GUID const & id, IUnknown ** found) { return ObjectServices::GetService(id, found); });
    };
    auto const peer = [services]
    {
        return AskAll(
            services->asked,
            [&services](GUID const & id, IUnknown ** found)
            { return services->peer.Get(id, IID_IUnknown, reinterpret_cast<void **>(found)); });
    };
    bench::Require(ours() == peer() && ours() != 0, "ServiceLookUp");
    std::size_t const bytes = lookUps * sizeof(GUID);
    bench::Add("ServiceLookUp/100-services/ours", bytes, [ours] { benchmark::DoNotOptimize(ours()); });
    bench::Add("ServiceLookUp/100-services/unordered_map", bytes, [peer] { benchmark::DoNotOptimize(peer()); });
}

bench::Source const source(AddJobs);

} // namespace
