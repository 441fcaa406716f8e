#include <support/BadPointers.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <thread>

#include <sys/mman.h>

#include <kvcore/platform/Faults.h>
#include <kvcore/platform/win32.h>

#include <gtest/gtest.h>

namespace kv::test
{

namespace
{

/// What becomes of a fault here.
struct CaughtFault
{
};

void Throw(unsigned, EXCEPTION_POINTERS *)
{
    throw CaughtFault();
}

class Scope
{
public:
    Scope() : before(kv::platform::SetFaultTranslator(Throw)) {}
    ~Scope()
    {
        kv::platform::SetFaultTranslator(before);
    }
    Scope(Scope const &) = delete;
    Scope & operator=(Scope const &) = delete;

private:
    kv::platform::FaultTranslator const before;
};

/// A page that can be read and not written, all zeros.
void * ReadOnlyPage()
{
    static void * const page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return page;
}

} // namespace

Outcome MakeInScope(PointerCall const & call, Pointers const & pointers)
{
    Scope const scope;
    try
    {
        return call.make(pointers) ? Outcome::Worked : Outcome::Refused;
    }
    catch (CaughtFault const &)
    {
        return Outcome::Faulted;
    }
}

bool WorksOnAnotherThread(PointerCall const & call)
{
    auto const task = std::make_shared<std::packaged_task<bool()>>([call] { return call.make(call.good); });
    std::future<bool> result = task->get_future();
    std::thread([task] { (*task)(); }).detach();
    constexpr auto longest = std::chrono::seconds(20);
    return result.wait_for(longest) == std::future_status::ready && result.get();
}

std::vector<Pointer> BadPointers()
{
    constexpr std::uintptr_t noProgramsPage = 0x10;
    constexpr std::uintptr_t noAddress = 0x8000000000000000;
    return {
        Pointer{reinterpret_cast<void *>(noProgramsPage)}, Pointer{reinterpret_cast<void *>(noAddress)},
        Pointer{ReadOnlyPage()}};
}

std::size_t OpenDescriptors()
{
    std::filesystem::directory_iterator const open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

namespace
{

/// How many of the bad addresses keep the call from working in one place.
std::size_t CountFailures(PointerCall const & call, std::size_t place)
{
    std::size_t failures = 0;
    for (Pointer const bad : BadPointers())
    {
        Pointers pointers = call.good;
        pointers[place] = bad;
        failures += MakeInScope(call, pointers) == Outcome::Worked ? 0 : 1;
    }
    return failures;
}

} // namespace

void ExpectSurvivesBadPointers(PointerCall const & call, std::size_t leastFailures)
{
    ASSERT_TRUE(WorksOnAnotherThread(call)) << "the call itself is wrong";
    for (std::size_t place = 0; place < call.good.size(); ++place)
    {
        EXPECT_GE(CountFailures(call, place), leastFailures) << "argument " << place << " is not looked at";
    }
    // What the process opens once it has opened by now.
    std::size_t const open = OpenDescriptors();
    for (std::size_t place = 0; place < call.good.size(); ++place)
    {
        CountFailures(call, place);
    }
    EXPECT_EQ(OpenDescriptors(), open);
    EXPECT_TRUE(WorksOnAnotherThread(call)) << "something is held";
}

} // namespace kv::test
