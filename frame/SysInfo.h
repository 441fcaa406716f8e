#pragma once

#include <map>

#include <kvcore/core/String.h>
#include <kvcore/platform/export.h>
#include <kvcore/platform/machine.h>

/// What a program runs on. Any thread.
namespace SysInfo
{

/// The edition of Windows. Bits 16 and up name the family, bits 8 to 15 the kind within it, bits 0 to 7 the edition, so
/// that families can be told apart by `system >> 16` and compared by size. The numbers are stored and compared
/// elsewhere.
enum System
{
    Windows95 = 0x10000,

    Windows98 = 0x20000,

    WindowsMe = 0x30000,

    NT4 = 0x40000,
    NT4Server = 0x40100,
    NT4ServerEnterprise = 0x40101,

    Windows2000Professional = 0x50000,
    Windows2000Server = 0x50100,
    Windows2000DatacenterServer = 0x50101,
    Windows2000AdvancedServer = 0x50102,

    XPProfessional = 0x60000,
    XPHome = 0x60001,
    XPEmbedded = 0x60002,
    XPProfessionalX64 = 0x60003,

    Server2003Standard = 0x70000,
    Server2003Web = 0x70001,
    Server2003ComputeCluster = 0x70002,
    Server2003Datacenter = 0x70003,
    Server2003Enterprise = 0x70004,
    Server2003R2Standard = 0x70100,
    Server2003R2Web = 0x70101,
    Server2003R2ComputeCluster = 0x70102,
    Server2003R2Datacenter = 0x70103,
    Server2003R2Enterprise = 0x70104,
    Server2003R2StorageServer = 0x70105,

    Vista = 0x80000,
    VistaBusiness = 0x80001,
    VistaBusinessN = 0x80002,
    VistaEnterprise = 0x80003,
    VistaHomeBasic = 0x80004,
    VistaHomeBasicN = 0x80005,
    VistaHomePremium = 0x80006,
    VistaStarter = 0x80007,
    VistaUltimate = 0x80008,
    VistaUnlicensed = 0x80009,
    VistaX64 = 0x80100,
    VistaX64Business = 0x80101,
    VistaX64BusinessN = 0x80102,
    VistaX64Enterprise = 0x80103,
    VistaX64HomeBasic = 0x80104,
    VistaX64HomeBasicN = 0x80105,
    VistaX64HomePremium = 0x80106,
    VistaX64Starter = 0x80107,
    VistaX64Ultimate = 0x80108,
    VistaX64Unlicensed = 0x80109,

    Server2008 = 0x90000,
    Server2008DatacenterCore = 0x90001,
    Server2008Datacenter = 0x90002,
    Server2008Cluster = 0x90003,
    Server2008Enterprise = 0x90004,
    Server2008EnterpriseCore = 0x90005,
    Server2008EnterpriseItanium = 0x90006,
    Server2008Home = 0x90007,
    Server2008ForSmallBusiness = 0x90008,
    Server2008SmallBusiness = 0x90009,
    Server2008SmallBusinessPremium = 0x9000A,
    Server2008Standard = 0x9000B,
    Server2008StandardCore = 0x9000C,
    Server2008StorageEnterprise = 0x9000D,
    Server2008StorageExpress = 0x9000E,
    Server2008StorageStandard = 0x9000F,
    Server2008StorageWorkgroup = 0x90010,
    Server2008Web = 0x90011,
    Server2008Unlicensed = 0x90012,

    /// Any other; so every version after 6.0.
    UnknownSystem = 0x7FFFFFFF,
};

/// The system's edition, worked out once in a process.
///
/// Kept: of version 6.0 the lowest bit of the product type tells clients from servers, so a plain server (3) goes with
/// the clients.
KVCORE_API System GetSystem();

/// "Windows " and the edition's name, for logs and about boxes: "Windows XP Professional Edition (Mediacenter)".
///
/// Kept, since names are compared with those in old logs: "Windows Vista  Edition" with two blanks where the edition is
/// not known, "Windows Server "Longorn"" in this spelling for all of version 6.0's servers, and "Windows Post-Vista"
/// for all that is later or unknown.
KVCORE_API String GetOSName();

/// The system's own record of the machine, and the processor's family: "Intel", "Intel 64", "AMD 64" or "Unknown".
KVCORE_API void GetSystemInfo(SYSTEM_INFO & info, String & cpuName);

/// The value of an environment variable; empty if there is none or if it changes at this moment.
KVCORE_API String GetEnvironmentVariableW(String const & name);

/// Replaces `codePages` by the code pages that are installed, with the system's names for them.
KVCORE_API void EnumInstalledCodepages(std::map<unsigned int, String> & codePages);

/// @name The version of DirectX
/// The major version in the upper half, the minor one in the byte below, the letter behind it (1 for 'a') in the
/// lowest: 0x00090003 is 9.0c. The calling thread has initialised COM.
/// @{

/// What the system's diagnostic provider says; asked and logged once in a process, which may take seconds. 0 if it says
/// nothing.
KVCORE_API DWORD GetDirectXVersion();

/// 0x90000 for version 9 and all later ones, told by one of its classes; if that is not there, GetDirectXVersion().
/// Logs each time.
KVCORE_API DWORD FastGetDirectXVersion();
/// @}

} // namespace SysInfo
