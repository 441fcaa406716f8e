#include <kvcore/frame/detail/SystemClass.h>

#include <algorithm>
#include <iterator>

#include <kvcore/platform/win32.h>

namespace kv::detail
{

namespace
{

constexpr DWORD unlicensed = 0xABCDABCD;

struct Product
{
    DWORD number;
    SysInfo::System system;
};

constexpr Product clients[] = {
    {1, SysInfo::VistaUltimate},   {2, SysInfo::VistaHomeBasic},  {3, SysInfo::VistaHomePremium},
    {4, SysInfo::VistaEnterprise}, {5, SysInfo::VistaHomeBasicN}, {6, SysInfo::VistaBusiness},
    {11, SysInfo::VistaStarter},   {16, SysInfo::VistaBusinessN}, {unlicensed, SysInfo::VistaUnlicensed},
};

constexpr Product servers[] = {
    {7, SysInfo::Server2008Standard},
    {8, SysInfo::Server2008Datacenter},
    {9, SysInfo::Server2008SmallBusiness},
    {10, SysInfo::Server2008Enterprise},
    {12, SysInfo::Server2008DatacenterCore},
    {13, SysInfo::Server2008StandardCore},
    {14, SysInfo::Server2008EnterpriseCore},
    {15, SysInfo::Server2008EnterpriseItanium},
    {17, SysInfo::Server2008Web},
    {18, SysInfo::Server2008Cluster},
    {19, SysInfo::Server2008Home},
    {20, SysInfo::Server2008StorageExpress},
    {21, SysInfo::Server2008StorageStandard},
    {22, SysInfo::Server2008StorageWorkgroup},
    {23, SysInfo::Server2008StorageEnterprise},
    {24, SysInfo::Server2008ForSmallBusiness},
    {25, SysInfo::Server2008SmallBusinessPremium},
    {unlicensed, SysInfo::Server2008Unlicensed},
};

/// A value with more bits of the kind or edition in it.
SysInfo::System Refine(SysInfo::System system, unsigned int more)
{
    return static_cast<SysInfo::System>(static_cast<unsigned int>(system) + more);
}

bool IsWorkstation(SystemFacts const & facts)
{
    return facts.productType == VER_NT_WORKSTATION;
}

bool HasSuite(SystemFacts const & facts, unsigned int suite)
{
    return (facts.suiteMask & suite) != 0;
}

SysInfo::System ClassifyWindows9x(SystemFacts const & facts)
{
    return facts.minor == 0 ? SysInfo::Windows95 : facts.minor == 10 ? SysInfo::Windows98 : SysInfo::WindowsMe;
}

SysInfo::System ClassifyNT4(SystemFacts const & facts)
{
    if (IsWorkstation(facts))
    {
        return SysInfo::NT4;
    }
    return Refine(SysInfo::NT4Server, HasSuite(facts, VER_SUITE_ENTERPRISE) ? 1 : 0);
}

SysInfo::System ClassifyWindows2000(SystemFacts const & facts)
{
    if (IsWorkstation(facts))
    {
        return SysInfo::Windows2000Professional;
    }
    if (HasSuite(facts, VER_SUITE_DATACENTER))
    {
        return SysInfo::Windows2000DatacenterServer;
    }
    return Refine(SysInfo::Windows2000Server, HasSuite(facts, VER_SUITE_ENTERPRISE) ? 2 : 0);
}

SysInfo::System ClassifyXP(SystemFacts const & facts)
{
    if (HasSuite(facts, VER_SUITE_PERSONAL))
    {
        return SysInfo::XPHome;
    }
    return Refine(SysInfo::XPProfessional, HasSuite(facts, VER_SUITE_EMBEDDEDNT) ? 2 : 0);
}

SysInfo::System ClassifyServer2003(SystemFacts const & facts)
{
    if (IsWorkstation(facts))
    {
        return SysInfo::XPProfessionalX64;
    }
    // In the order in which they are looked for; the later ones may be set beside the earlier.
    constexpr Product suites[] = {
        {VER_SUITE_BLADE, SysInfo::Server2003Web},
        {VER_SUITE_COMPUTE_SERVER, SysInfo::Server2003ComputeCluster},
        {VER_SUITE_DATACENTER, SysInfo::Server2003Datacenter},
        {VER_SUITE_ENTERPRISE, SysInfo::Server2003Enterprise},
        {VER_SUITE_STORAGE_SERVER, SysInfo::Server2003R2StorageServer},
    };
    SysInfo::System system = facts.isServerR2 ? SysInfo::Server2003R2Standard : SysInfo::Server2003Standard;
    for (Product const & suite : suites)
    {
        bool const isOfR2Alone = suite.number == VER_SUITE_STORAGE_SERVER;
        if (HasSuite(facts, suite.number) && (facts.isServerR2 || !isOfR2Alone))
        {
            return Refine(system, static_cast<unsigned int>(suite.system) & 0xFF);
        }
    }
    return system;
}

/// `group` itself where the system does not tell the product, or tells one that nobody has heard of.
template <std::size_t count>
SysInfo::System FindProduct(SystemFacts const & facts, Product const (&products)[count], SysInfo::System group)
{
    auto const * const found = std::find_if(
        std::begin(products), std::end(products),
        [&facts](Product const & product) { return facts.product == product.number; });
    return found != std::end(products) ? found->system : group;
}

SysInfo::System ClassifyVista(SystemFacts const & facts)
{
    if ((facts.productType & 1) == 0) // Kept: what is no domain controller is taken for a client
    {
        return FindProduct(facts, servers, SysInfo::Server2008);
    }
    SysInfo::System const client = FindProduct(facts, clients, SysInfo::Vista);
    return facts.isWow64 ? static_cast<SysInfo::System>(client | SysInfo::VistaX64) : client;
}

} // namespace

SysInfo::System ClassifySystem(SystemFacts const & facts)
{
    if (facts.platform == VER_PLATFORM_WIN32_WINDOWS)
    {
        return ClassifyWindows9x(facts);
    }
    if (facts.major == 4)
    {
        return ClassifyNT4(facts);
    }
    if (facts.major == 5 && facts.minor == 0)
    {
        return ClassifyWindows2000(facts);
    }
    if (facts.major == 5 && facts.minor == 1)
    {
        return ClassifyXP(facts);
    }
    if (facts.major == 5 && facts.minor == 2)
    {
        return ClassifyServer2003(facts);
    }
    if (facts.major == 6 && facts.minor == 0)
    {
        return ClassifyVista(facts);
    }
    return SysInfo::UnknownSystem;
}

} // namespace kv::detail
