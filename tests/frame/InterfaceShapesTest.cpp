// What callers that were built against the frame rely on beside names: bases, calling conventions and the order of
// virtual operations.

#include <type_traits>

#include <gtest/gtest.h>

#include <kvcore/frame/Approximation.h>
#include <kvcore/frame/COMThread.h>
#include <kvcore/frame/CommandLine.h>
#include <kvcore/frame/ConsoleApplication.h>
#include <kvcore/frame/DataObject.h>
#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/ModuleBase.h>
#include <kvcore/frame/SEHException.h>
#include <kvcore/frame/SysParamWatcher.h>
#include <kvcore/frame/Thread.h>
#include <kvcore/frame/Timer.h>
#include <kvcore/frame/UserWorkItem.h>
#include <kvcore/platform/win32.h>

namespace
{

template <class Base, class Derived>
concept CanBeCastDown = requires(Base * base)
{
    static_cast<Derived *>(base);
};

/// Only a virtual base cannot be cast down by the compiler alone.
template <class Base, class Derived>
constexpr bool isVirtualBase = std::is_convertible_v<Derived *, Base *> && !CanBeCastDown<Base, Derived>;
template <class Base, class Derived>
constexpr bool isPlainBase = std::is_convertible_v<Derived *, Base *> && CanBeCastDown<Base, Derived>;

static_assert(isPlainBase<ObjectServices, ModuleBase>);
static_assert(isVirtualBase<ModuleBase, ApplicationBase>);
static_assert(isPlainBase<ApplicationBase, ConsoleApplication>);
static_assert(isPlainBase<IKVLogFile, KVLogFile> && isPlainBase<IUnknown, IKVLogFile>);
static_assert(isVirtualBase<NotCopyable, Thread> && isVirtualBase<IKVThread, Thread>);
static_assert(isPlainBase<Thread, COMThread>);
static_assert(isPlainBase<ITimerTarget, SysParamWatcher>);
static_assert(isPlainBase<IDataObject, DataObject> && isPlainBase<KVUnknown, DataObject>);
static_assert(isPlainBase<RegisteredObject, DataObject> && isVirtualBase<IUnknown, KVUnknown>);
static_assert(!std::is_polymorphic_v<SEHException> && !std::is_polymorphic_v<ObjectServices>);

// On 32 bits these are types of their own.
static_assert(std::is_same_v<
              decltype(static_cast<void (STDMETHODCALLTYPE KVLogFile::*)(String const &)>(&KVLogFile::AddLine)),
              void (STDMETHODCALLTYPE KVLogFile::*)(String const &)>);
static_assert(std::is_same_v<
              decltype(static_cast<void (STDMETHODCALLTYPE KVLogFile::*)(WinException const &)>(&KVLogFile::AddLine)),
              void (STDMETHODCALLTYPE KVLogFile::*)(WinException const &)>);
static_assert(std::is_same_v<decltype(&KVLogFile::GetLogText), String (KVLogFile::*)(void *, String const &)>);
static_assert(std::is_same_v<decltype(&IKVLogFile::SetThreadIndent), HRESULT (STDMETHODCALLTYPE IKVLogFile::*)(ULONG)>);
static_assert(std::is_same_v<decltype(&IKVLogFile::AddFormattedLine), HRESULT (IKVLogFile::*)(WCHAR const *, ...)>);
static_assert(
    std::is_same_v<decltype(&ModuleBase::GetProcedure), int(CALLBACK * (ModuleBase::*)(std::string const &) const)()>);
static_assert(
    std::is_same_v<decltype(&DataObject::QueryInterface), HRESULT (STDMETHODCALLTYPE DataObject::*)(REFIID, void **)>);
static_assert(std::is_same_v<decltype(&DataObject::Release), ULONG (STDMETHODCALLTYPE DataObject::*)()>);
static_assert(
    std::is_same_v<
        decltype(&DataObject::SetData), HRESULT (STDMETHODCALLTYPE DataObject::*)(FORMATETC *, STGMEDIUM *, BOOL)>);
static_assert(std::is_same_v<decltype(&ObjectServices::RegisterClassW), HRESULT (*)(GUID const &, IUnknown * (*)())>);

/// The functions of an object's first table, as the compiler that made it lays them out: plain addresses in order.
void ** TableOf(void * object)
{
    return *static_cast<void ***>(object);
}

TEST(InterfaceShapes, TheLogsOperationsStandInTheirSlots)
{
    KVLogFile & log = KVLogFile::Object();
    void ** const table = TableOf(static_cast<IKVLogFile *>(&log));
    using SetIndent = HRESULT(STDMETHODCALLTYPE *)(void *, ULONG);
    using AddRef = ULONG(STDMETHODCALLTYPE *)(void *);
    EXPECT_EQ(reinterpret_cast<AddRef>(table[1])(&log), 1u);
    EXPECT_EQ(reinterpret_cast<AddRef>(table[2])(&log), 1u);
    EXPECT_EQ(reinterpret_cast<SetIndent>(table[4])(&log, 2), S_OK);
    EXPECT_EQ(log.GetLogText(nullptr, TEXT("x")).substr(21), TEXT("     x\r\n"));
    log.SetThreadIndent(0);
}

TEST(InterfaceShapes, ADataObjectIsAnUnknownOfEitherBase)
{
    DataObject * const object = new DataObject;
    IUnknown * const ofInterface = static_cast<IDataObject *>(object);
    IUnknown * const ofObjectBase = static_cast<KVUnknown *>(object);
    EXPECT_EQ(ofInterface->AddRef(), 2u);
    EXPECT_EQ(ofObjectBase->AddRef(), 3u) << "there is one count";
    for (IUnknown * const unknown : {ofInterface, ofObjectBase})
    {
        void * found = nullptr;
        EXPECT_EQ(unknown->QueryInterface(IID_IUnknown, &found), S_OK);
        EXPECT_EQ(found, ofInterface) << "an object has one identity";
        EXPECT_EQ(unknown->Release(), 3u);
    }
    EXPECT_EQ(ofObjectBase->Release(), 2u);
    EXPECT_EQ(ofInterface->Release(), 1u);
    RegisteredObject * const registered = object;
    EXPECT_EQ(dynamic_cast<DataObject *>(registered), object);
    EXPECT_EQ(ofObjectBase->Release(), 0u);
}

} // namespace
