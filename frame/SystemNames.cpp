#include <kvcore/frame/detail/SystemClass.h>

namespace kv::detail
{

namespace
{

struct SystemName
{
    SysInfo::System system;
    WCHAR const * name;
};

constexpr SystemName names[] = {
    {SysInfo::Windows95, TEXT("95")},
    {SysInfo::Windows98, TEXT("98")},
    {SysInfo::WindowsMe, TEXT("Me")},
    {SysInfo::NT4, TEXT("NT 4.0")},
    {SysInfo::NT4Server, TEXT("NT Server 4.0")},
    {SysInfo::NT4ServerEnterprise, TEXT("NT Server 4.0 Enterprise Edition")},
    {SysInfo::Windows2000Professional, TEXT("2000 Professional Edition")},
    {SysInfo::Windows2000Server, TEXT("2000 Server")},
    {SysInfo::Windows2000DatacenterServer, TEXT("2000 Datacenter Server")},
    {SysInfo::Windows2000AdvancedServer, TEXT("2000 Advanced Server")},
    {SysInfo::XPProfessional, TEXT("XP Professional Edition")},
    {SysInfo::XPHome, TEXT("XP Home Edition")},
    {SysInfo::XPEmbedded, TEXT("XP Embedded")},
    {SysInfo::XPProfessionalX64, TEXT("XP Professional x64 Edition")},
    {SysInfo::Server2003Standard, TEXT("Server 2003 Standard Edition")},
    {SysInfo::Server2003Web, TEXT("Server 2003 Web Edition")},
    {SysInfo::Server2003ComputeCluster, TEXT("Server 2003 Compute Cluster Edition")},
    {SysInfo::Server2003Datacenter, TEXT("Server 2003 Datacenter Edition")},
    {SysInfo::Server2003Enterprise, TEXT("Server 2003 Enterprise Edition")},
    {SysInfo::Server2003R2Standard, TEXT("Server 2003 R2 Standard Edition")},
    {SysInfo::Server2003R2Web, TEXT("Server 2003 R2 Web Edition")},
    {SysInfo::Server2003R2ComputeCluster, TEXT("Server 2003 R2 Compute Cluster Edition")},
    {SysInfo::Server2003R2Datacenter, TEXT("Server 2003 R2 Datacenter Edition")},
    {SysInfo::Server2003R2Enterprise, TEXT("Server 2003 R2 Enterprise Edition")},
    {SysInfo::Server2003R2StorageServer, TEXT("Server 2003 R2 Storage Server Edition")},
    {SysInfo::Vista, TEXT("Vista  Edition")},
    {SysInfo::VistaBusiness, TEXT("Vista Business Edition")},
    {SysInfo::VistaBusinessN, TEXT("Vista Business N Edition")},
    {SysInfo::VistaEnterprise, TEXT("Vista Enterprise Edition")},
    {SysInfo::VistaHomeBasic, TEXT("Vista Home Basic Edition")},
    {SysInfo::VistaHomeBasicN, TEXT("Vista Home Basic N Edition")},
    {SysInfo::VistaHomePremium, TEXT("Vista Home Premium Edition")},
    {SysInfo::VistaStarter, TEXT("Vista Starter Edition")},
    {SysInfo::VistaUltimate, TEXT("Vista Ultimate Edition")},
    {SysInfo::VistaUnlicensed, TEXT("Vista Unlicensed Edition")},
    {SysInfo::VistaX64, TEXT("Vista x64  Edition")},
    {SysInfo::VistaX64Business, TEXT("Vista x64 Business Edition")},
    {SysInfo::VistaX64BusinessN, TEXT("Vista x64 Business N Edition")},
    {SysInfo::VistaX64Enterprise, TEXT("Vista x64 Enterprise Edition")},
    {SysInfo::VistaX64HomeBasic, TEXT("Vista x64 Home Basic Edition")},
    {SysInfo::VistaX64HomeBasicN, TEXT("Vista x64 Home Basic N Edition")},
    {SysInfo::VistaX64HomePremium, TEXT("Vista x64 Home Premium Edition")},
    {SysInfo::VistaX64Starter, TEXT("Vista x64 Starter Edition")},
    {SysInfo::VistaX64Ultimate, TEXT("Vista x64 Ultimate Edition")},
    {SysInfo::VistaX64Unlicensed, TEXT("Vista x64 Unlicensed Edition")},
};

constexpr unsigned int FamilyOf(SysInfo::System system)
{
    return static_cast<unsigned int>(system) >> 16;
}

WCHAR const * EditionOf(SysInfo::System system)
{
    for (SystemName const & known : names)
    {
        if (known.system == system)
        {
            return known.name;
        }
    }
    bool const isServer = system >= SysInfo::Server2008 && system <= SysInfo::Server2008Unlicensed;
    return isServer ? TEXT("Server \"Longorn\"") : TEXT("Post-Vista");
}

} // namespace

String NameOfSystem(SysInfo::System system, bool isMediaCenter)
{
    String name = TEXT("Windows ");
    name << EditionOf(system);
    if (isMediaCenter && FamilyOf(system) == FamilyOf(SysInfo::XPProfessional))
    {
        name << TEXT(" (Mediacenter)");
    }
    return name;
}

} // namespace kv::detail
