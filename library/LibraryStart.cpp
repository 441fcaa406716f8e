// The library's start and stop. Every object that lives from load to unload is defined in this file, so that the order
// of their construction, and of their destruction in reverse, can be read here and does not hang on a linker. No other
// source of the library has an object that is destroyed at namespace scope; a check looks for them.

#include <kvcore/frame/ModuleBase.h>
#include <kvcore/frame/detail/CounterFrequency.h>
#include <kvcore/frame/detail/LogLifetime.h>
#include <kvcore/frame/detail/ServiceTables.h>
#include <kvcore/frame/detail/ThreadName.h>
#include <kvcore/library/StartRecord.h>

namespace kv::detail
{

namespace
{

/// The library's own module. It is made first and started last, and never freed: its entry stays in the list.
class LibraryModule : public ModuleBase
{
public:
    void Start()
    {
        Init(GetHInstance(reinterpret_cast<void const *>(&AttachThreadNames)));
    }
};

LibraryModule ownModule;
StartLandmark const afterOwnModule("own module");

} // namespace

CounterFrequency const counterFrequency;
namespace
{
StartLandmark const afterCounterFrequency("counter frequency");

LogLifetime const logLifetime;
StartLandmark const afterLog("log");
} // namespace

} // namespace kv::detail

std::list<ModuleBase *> ModuleBase::modules;
static kv::detail::StartLandmark const afterModuleList("module list");

String ModuleBase::globalDisplayName;
static kv::detail::StartLandmark const afterDisplayName("global display name");

// These need no making.
unsigned short ModuleBase::language = 0;
ILanguageDLLName * ModuleBase::languageNames = nullptr;
double ModuleBase::scalingX = 1.0;
double ModuleBase::scalingY = 1.0;

namespace kv::detail
{

RecursiveLock serviceLock;
RecursiveLock classLock;
static StartLandmark const afterServiceLocks("object service locks");

std::map<GUID, IUnknown *, GuidLess> services;
static StartLandmark const afterServices("object services");

std::map<GUID, ObjectServices::CreateFunction, GuidLess> classes;
static StartLandmark const afterClasses("object classes");

} // namespace kv::detail

namespace kv::detail
{

namespace
{

/// The first exception of a process makes the system's loader bind what throwing calls, and that takes more of the
/// stack than throwing does: more than is left where a reader refuses to go deeper into a small stack. So the first is
/// thrown here.
void BindThrowing()
{
    try
    {
        throw 0;
    }
    catch (int)
    {
    }
}

/// What is done when all of the above stand, and undone before any of them goes.
class Attachment
{
public:
    Attachment()
    {
        BindThrowing();
        AttachThreadNames();
        ownModule.Start();
    }
    Attachment(Attachment const &) = delete;
    Attachment & operator=(Attachment const &) = delete;
    ~Attachment()
    {
        DetachThreadNames();
    }
};

Attachment const attachment;
StartLandmark const afterAttachment("attachment");

} // namespace

} // namespace kv::detail
