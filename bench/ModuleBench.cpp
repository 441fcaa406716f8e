// Strings out of a module's resources beside a resource bundle of ICU's, and the module of an address beside dladdr.

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <unicode/ures.h>

#include <kvcore/frame/ModuleBase.h>
#include <kvcore/platform/win32.h>

#include "Jobs.h"

namespace
{

constexpr std::size_t lookUps = 10000;

/// The strings' numbers in the order in which they are asked for, and ICU's keys for them.
struct Asked
{
    Asked()
    {
        std::vector<unsigned> known;
        std::ifstream list(KVBENCH_STRINGS);
        for (std::string line; std::getline(list, line);)
        {
            known.push_back(static_cast<unsigned>(std::stoul(line)));
        }
        bench::Require(!known.empty(), "LoadString");
        auto random = bench::Random();
        for (std::size_t i = 0; i < lookUps; ++i)
        {
            ids.push_back(known[random() % known.size()]);
            keys.push_back("id" + std::to_string(ids.back()));
        }
    }

    std::vector<unsigned> ids;
    std::vector<std::string> keys;
};

/// The units of all that was asked for, which is as good as a sum.
std::size_t LoadOurs(Asked const & asked)
{
    std::size_t units = 0;
    for (unsigned const id : asked.ids)
    {
        String const text = ModuleBase::LoadStringW(nullptr, id);
        units += text.size() + text[0];
    }
    return units;
}

/// A bundle that stays open, as that of a program does.
class Bundle
{
public:
    Bundle()
    {
        UErrorCode status = U_ZERO_ERROR;
        bundle.reset(ures_open(KVBENCH_BUNDLE, "root", &status));
        bench::Require(U_SUCCESS(status), "LoadString");
    }
    std::size_t Load(Asked const & asked) const
    {
        std::size_t units = 0;
        for (std::string const & key : asked.keys)
        {
            UErrorCode status = U_ZERO_ERROR;
            std::int32_t length = 0;
            UChar const * const found = ures_getStringByKey(bundle.get(), key.c_str(), &length, &status);
            WString const text(found, static_cast<std::size_t>(length));
            units += text.size() + text[0];
        }
        return units;
    }

private:
    struct Close
    {
        void operator()(UResourceBundle * bundle) const
        {
            ures_close(bundle);
        }
    };
    std::unique_ptr<UResourceBundle, Close> bundle;
};

/// Addresses of code in several modules.
std::vector<void *> Addresses()
{
    auto const addressOf = [](auto * function) { return reinterpret_cast<void *>(function); };
    return {
        addressOf(&LoadOurs), addressOf(&ModuleBase::GetHInstance), addressOf(&ures_open),
        addressOf(&::dladdr), addressOf(&GetModuleFileNameW),       addressOf(&benchmark::Shutdown),
    };
}

std::uintptr_t ModulesOf(std::vector<void *> const & addresses)
{
    std::uintptr_t sum = 0;
    for (std::size_t i = 0; i < lookUps; ++i)
    {
        sum += reinterpret_cast<std::uintptr_t>(ModuleBase::GetHInstance(addresses[i % addresses.size()]));
    }
    return sum;
}

std::uintptr_t BasesOf(std::vector<void *> const & addresses)
{
    std::uintptr_t sum = 0;
    for (std::size_t i = 0; i < lookUps; ++i)
    {
        Dl_info module;
        dladdr(addresses[i % addresses.size()], &module);
        sum += reinterpret_cast<std::uintptr_t>(module.dli_fbase);
    }
    return sum;
}

void AddModuleJobs()
{
    auto const asked = std::make_shared<Asked>();
    auto const bundle = std::make_shared<Bundle>();
    std::size_t const units = LoadOurs(*asked);
    bench::Require(units == bundle->Load(*asked), "LoadString");
    bench::Add("LoadString/44-strings/ours", units, [asked] { benchmark::DoNotOptimize(LoadOurs(*asked)); });
    bench::Add("LoadString/44-strings/icu", units, [asked, bundle] { benchmark::DoNotOptimize(bundle->Load(*asked)); });

    std::vector<void *> const addresses = Addresses();
    bench::Require(ModulesOf(addresses) == BasesOf(addresses), "ModuleOfAddress");
    bench::Add(
        "ModuleOfAddress/6-modules/ours", lookUps, [addresses] { benchmark::DoNotOptimize(ModulesOf(addresses)); });
    bench::Add(
        "ModuleOfAddress/6-modules/dladdr", lookUps, [addresses] { benchmark::DoNotOptimize(BasesOf(addresses)); });
}

bench::Source const source(AddModuleJobs);

} // namespace
