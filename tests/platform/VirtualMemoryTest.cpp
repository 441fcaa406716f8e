#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>

namespace
{

constexpr SIZE_T page = 0x1000;

/// Memory from VirtualAlloc, which the end of the test gives back.
class Pages
{
public:
    Pages(SIZE_T size, DWORD type, DWORD protection)
        : base(static_cast<char *>(VirtualAlloc(nullptr, size, type, protection)))
    {
    }
    Pages(Pages const &) = delete;
    Pages & operator=(Pages const &) = delete;
    ~Pages()
    {
        VirtualFree(base, 0, MEM_RELEASE);
    }
    char * At(SIZE_T pages) const
    {
        return base + pages * page;
    }

private:
    char * const base;
};

MEMORY_BASIC_INFORMATION Query(void const * address)
{
    MEMORY_BASIC_INFORMATION region{};
    EXPECT_EQ(sizeof(region), VirtualQuery(address, &region, sizeof(region)));
    return region;
}

void ExpectRegion(
    void const * address, void const * base, void const * allocation, SIZE_T pages, DWORD state, DWORD protection)
{
    MEMORY_BASIC_INFORMATION const region = Query(address);
    EXPECT_EQ(base, region.BaseAddress);
    EXPECT_EQ(allocation, region.AllocationBase);
    EXPECT_EQ(pages * page, region.RegionSize);
    EXPECT_EQ(state, region.State);
    EXPECT_EQ(protection, region.Protect);
    EXPECT_EQ(DWORD{MEM_PRIVATE}, region.Type);
}

/// The last error behind a call that must fail.
template <class Call>
DWORD ErrorOf(Call call)
{
    SetLastError(0);
    EXPECT_FALSE(call());
    return GetLastError();
}

TEST(VirtualMemory, ReservedPagesAreCommittedInParts)
{
    Pages const pages(0x30000, MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(nullptr, pages.At(0));
    EXPECT_EQ(0u, reinterpret_cast<ULONG_PTR>(pages.At(0)) % 0x10000);
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 0x30, MEM_RESERVE, 0);
    ExpectRegion(pages.At(5) + 1, pages.At(5), pages.At(0), 0x2B, MEM_RESERVE, 0);

    // Whatever page the range touches.
    EXPECT_EQ(pages.At(1), VirtualAlloc(pages.At(1) + 0x800, page, MEM_COMMIT, PAGE_READWRITE));
    std::memset(pages.At(1), 7, 2 * page);
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 1, MEM_RESERVE, 0);
    ExpectRegion(pages.At(1) + 1, pages.At(1), pages.At(0), 2, MEM_COMMIT, PAGE_READWRITE);
    ExpectRegion(pages.At(3), pages.At(3), pages.At(0), 0x2D, MEM_RESERVE, 0);

    // Committed and barred is not the same as reserved.
    EXPECT_EQ(pages.At(2), VirtualAlloc(pages.At(2), page, MEM_COMMIT, PAGE_NOACCESS));
    ExpectRegion(pages.At(2), pages.At(2), pages.At(0), 1, MEM_COMMIT, PAGE_NOACCESS);
    EXPECT_EQ(pages.At(1), VirtualAlloc(pages.At(1), page, MEM_COMMIT, PAGE_READWRITE));
    EXPECT_EQ(7, *pages.At(1)) << "committing once more keeps what is there";
}

TEST(VirtualMemory, DecommittedPagesAreReservedAndComeBackEmpty)
{
    Pages const pages(8 * page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    std::memset(pages.At(0), 7, 8 * page);
    EXPECT_TRUE(VirtualFree(pages.At(2), page, MEM_DECOMMIT));
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 2, MEM_COMMIT, PAGE_READWRITE);
    ExpectRegion(pages.At(2), pages.At(2), pages.At(0), 1, MEM_RESERVE, 0);
    ExpectRegion(pages.At(3), pages.At(3), pages.At(0), 5, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_EQ(pages.At(2), VirtualAlloc(pages.At(2), page, MEM_COMMIT, PAGE_READWRITE));
    EXPECT_EQ(0, *pages.At(2));
    EXPECT_EQ(7, *pages.At(3));
    EXPECT_TRUE(VirtualFree(pages.At(0), 0, MEM_DECOMMIT)) << "a size of 0 means all";
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 8, MEM_RESERVE, 0);
}

TEST(VirtualMemory, ProtectionChangesByThePage)
{
    Pages const pages(3 * page, MEM_COMMIT, PAGE_READONLY);
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 3, MEM_COMMIT, PAGE_READONLY);
    DWORD old = 0;
    EXPECT_TRUE(VirtualProtect(pages.At(1) + 0x800, 1, PAGE_READWRITE, &old));
    EXPECT_EQ(DWORD{PAGE_READONLY}, old);
    *pages.At(1) = 1;
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 1, MEM_COMMIT, PAGE_READONLY);
    ExpectRegion(pages.At(1), pages.At(1), pages.At(0), 1, MEM_COMMIT, PAGE_READWRITE);
    EXPECT_EQ(DWORD{PAGE_READONLY}, Query(pages.At(1)).AllocationProtect);

    Pages const reserved(page, MEM_RESERVE, PAGE_READWRITE);
    EXPECT_EQ(
        DWORD{ERROR_INVALID_ADDRESS}, ErrorOf([&] { return VirtualProtect(reserved.At(0), 1, PAGE_READWRITE, &old); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualProtect(pages.At(0), 1, 0, &old); }));
    EXPECT_EQ(DWORD{ERROR_NOACCESS}, ErrorOf([&] { return VirtualProtect(pages.At(0), 1, PAGE_READONLY, nullptr); }));
}

TEST(VirtualMemory, ProtectionRefusesRangesFromWhatIsNotThereToWhatIsNotCommitted)
{
    Pages const pages(5 * page, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    Pages const reserved(32 * page, MEM_RESERVE, PAGE_NOACCESS);
    ASSERT_NE(VirtualAlloc(reserved.At(2), 2 * page, MEM_COMMIT, PAGE_READWRITE), nullptr);
    DWORD const invalid = ERROR_INVALID_PARAMETER;
    DWORD const address = ERROR_INVALID_ADDRESS;
    struct
    {
        char const * what;
        char * address;
        SIZE_T size;
        DWORD protection;
        DWORD error;
    } const rows[] = {
        {"behind the allocation", pages.At(0), 5 * page + 1, PAGE_READONLY, invalid},
        {"its last byte and one more", pages.At(5) - 1, 2, PAGE_READONLY, invalid},
        {"null", nullptr, 1, PAGE_READONLY, invalid},
        {"null and nothing", nullptr, 0, PAGE_READONLY, invalid},
        {"the lowest pages", reinterpret_cast<char *>(0x100), 1, PAGE_READONLY, invalid},
        {"the end of all addresses", reinterpret_cast<char *>(~SIZE_T{0}), 1, PAGE_READONLY, invalid},
        {"reserved", reserved.At(0), 1, PAGE_READONLY, address},
        {"reserved, nothing", reserved.At(0), 0, PAGE_READONLY, address},
        {"reserved, by no protection", reserved.At(0), 1, 0, address},
        {"committed and reserved", reserved.At(2), 2 * page + 1, PAGE_READONLY, address},
        {"the byte before and the first", reserved.At(2) - 1, 2, 0x77, address},
        {"no protection", pages.At(0), 1, 0, invalid},
        {"no protection, of nothing", pages.At(0), 0, 0, invalid},
        {"two protections", pages.At(0), 1, PAGE_READONLY | PAGE_READWRITE, invalid},
        {"a copy of one's own", pages.At(0), 1, PAGE_WRITECOPY, invalid},
    };
    for (auto const & row : rows)
    {
        DWORD old = 0;
        EXPECT_EQ(ErrorOf([&] { return VirtualProtect(row.address, row.size, row.protection, &old); }), row.error)
            << row.what;
        EXPECT_EQ(
            ErrorOf([&] { return VirtualProtect(row.address, row.size, row.protection, nullptr); }),
            DWORD{ERROR_NOACCESS})
            << row.what;
    }
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 5, MEM_COMMIT, PAGE_READWRITE);
}

TEST(VirtualMemory, ProtectionOfNothingTellsWhatIsThereAndChangesNothing)
{
    Pages const pages(2 * page, MEM_COMMIT, PAGE_READWRITE);
    DWORD old = 0;
    EXPECT_TRUE(VirtualProtect(pages.At(0), 0, PAGE_READONLY, &old));
    EXPECT_EQ(old, DWORD{PAGE_READWRITE});
    ExpectRegion(pages.At(0), pages.At(0), pages.At(0), 2, MEM_COMMIT, PAGE_READWRITE);
}

TEST(VirtualMemory, ModifiersForCachesAreAccepted)
{
    Pages const pages(page, MEM_COMMIT, PAGE_READWRITE);
    for (DWORD const modifier : {0x200u, 0x400u})
    {
        DWORD old = 0;
        EXPECT_TRUE(VirtualProtect(pages.At(0), page, PAGE_READWRITE | modifier, &old));
        EXPECT_EQ(old, DWORD{PAGE_READWRITE});
        *pages.At(0) = 1;
    }
}

TEST(VirtualMemory, AllocatingRefusesWhatCannotBe)
{
    Pages const pages(0x30000, MEM_RESERVE, PAGE_READWRITE);
    struct
    {
        void * address;
        SIZE_T size;
        DWORD type;
        DWORD protection;
        DWORD error;
    } const cases[] = {
        {pages.At(0x2F), 2 * page, MEM_COMMIT, PAGE_READWRITE, ERROR_INVALID_ADDRESS},
        {pages.At(0), page, MEM_RESERVE, PAGE_READWRITE, ERROR_INVALID_ADDRESS},
        {nullptr, 0, MEM_RESERVE, PAGE_READWRITE, ERROR_INVALID_PARAMETER},
        {nullptr, 1, 0, PAGE_READWRITE, ERROR_INVALID_PARAMETER},
        {nullptr, 1, MEM_COMMIT, 0, ERROR_INVALID_PARAMETER},
        {nullptr, 1, MEM_COMMIT, 3, ERROR_INVALID_PARAMETER},
        {nullptr, 1, MEM_COMMIT | 1, PAGE_READWRITE, ERROR_INVALID_PARAMETER},
        {nullptr, ~SIZE_T{0} / 2, MEM_RESERVE, PAGE_READWRITE, ERROR_INVALID_PARAMETER},
    };
    for (auto const & attempt : cases)
    {
        EXPECT_EQ(
            attempt.error,
            ErrorOf([&] { return VirtualAlloc(attempt.address, attempt.size, attempt.type, attempt.protection); }));
    }
}

TEST(VirtualMemory, FreeingRefusesWhatWasNotAllocated)
{
    char * const base = static_cast<char *>(VirtualAlloc(nullptr, 0x30000, MEM_RESERVE, PAGE_READWRITE));
    ASSERT_NE(nullptr, base);
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(base, page, MEM_RELEASE); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_ADDRESS}, ErrorOf([&] { return VirtualFree(base + page, 0, MEM_RELEASE); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_ADDRESS}, ErrorOf([&] { return VirtualFree(base + page, 0, MEM_DECOMMIT); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(base, 0, 0); }));
    EXPECT_EQ(
        DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(base, 0, MEM_RELEASE | MEM_DECOMMIT); }));
    EXPECT_EQ(
        DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(base + 0x2F000, 2 * page, MEM_DECOMMIT); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(nullptr, 0, MEM_RELEASE); }));
    EXPECT_TRUE(VirtualFree(base, 0, MEM_RELEASE));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, ErrorOf([&] { return VirtualFree(base, 0, MEM_RELEASE); }));
    EXPECT_EQ(DWORD{MEM_FREE}, Query(base).State);
}

TEST(VirtualMemory, NeighboursStayApart)
{
    // Two reservations at one another's edge, made by giving a larger one back.
    char * const base = static_cast<char *>(VirtualAlloc(nullptr, 0x20000, MEM_RESERVE, PAGE_READWRITE));
    ASSERT_NE(nullptr, base);
    ASSERT_TRUE(VirtualFree(base, 0, MEM_RELEASE));
    ASSERT_EQ(base, VirtualAlloc(base, 0x10000, MEM_RESERVE, PAGE_READWRITE));
    ASSERT_EQ(base + 0x10000, VirtualAlloc(base + 0x10000, 0x10000, MEM_RESERVE, PAGE_READWRITE));
    ExpectRegion(base, base, base, 0x10, MEM_RESERVE, 0);
    ExpectRegion(base + 0x10000, base + 0x10000, base + 0x10000, 0x10, MEM_RESERVE, 0);
    EXPECT_TRUE(VirtualFree(base, 0, MEM_RELEASE));
    EXPECT_TRUE(VirtualFree(base + 0x10000, 0, MEM_RELEASE));
}

TEST(MemoryRegions, EveryAddressBelongsToTheModuleThatHoldsIt)
{
    static int variable = 0;
    HMODULE const program = GetModuleHandleW(nullptr);
    void const * const places[] = {reinterpret_cast<void const *>(&Query), &variable, "text", program};
    for (void const * const place : places)
    {
        MEMORY_BASIC_INFORMATION const region = Query(place);
        EXPECT_EQ(static_cast<void *>(program), region.AllocationBase);
        EXPECT_EQ(DWORD{MEM_COMMIT}, region.State);
        EXPECT_EQ(DWORD{MEM_IMAGE}, region.Type);
        EXPECT_LE(region.BaseAddress, place);
        EXPECT_GT(static_cast<char *>(region.BaseAddress) + region.RegionSize, place);
    }
    EXPECT_EQ(DWORD{PAGE_EXECUTE_READ}, Query(places[0]).Protect);
    EXPECT_EQ(DWORD{PAGE_READONLY}, Query(places[2]).Protect);
}

TEST(MemoryRegions, TheHeapAndTheStackAreNoModules)
{
    auto const heap = std::make_unique<char[]>(100);
    int local = 0;
    for (void const * const place : {static_cast<void const *>(heap.get()), static_cast<void const *>(&local)})
    {
        MEMORY_BASIC_INFORMATION const region = Query(place);
        EXPECT_EQ(DWORD{MEM_COMMIT}, region.State);
        EXPECT_EQ(DWORD{MEM_PRIVATE}, region.Type);
        EXPECT_EQ(DWORD{PAGE_READWRITE}, region.Protect);
        WCHAR path[MAX_PATH];
        EXPECT_EQ(0u, GetModuleFileNameW(static_cast<HMODULE>(region.AllocationBase), path, MAX_PATH));
    }
}

TEST(MemoryRegions, AWalkCoversTheAddressSpaceWithoutGaps)
{
    HMODULE const program = GetModuleHandleW(nullptr);
    MEMORY_BASIC_INFORMATION region;
    char * place = nullptr;
    unsigned regions = 0;
    unsigned ofProgram = 0;
    unsigned begins = 0;
    while (VirtualQuery(place, &region, sizeof(region)) == sizeof(region))
    {
        ASSERT_EQ(place, region.BaseAddress);
        ASSERT_NE(0u, region.RegionSize);
        ofProgram += region.AllocationBase == program;
        begins += region.AllocationBase == program && region.BaseAddress == program;
        place += region.RegionSize;
        ++regions;
    }
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, GetLastError());
    EXPECT_GT(reinterpret_cast<ULONG_PTR>(place), reinterpret_cast<ULONG_PTR>(&region));
    EXPECT_GT(regions, 20u);
    EXPECT_GT(ofProgram, 2u);
    EXPECT_EQ(1u, begins);
}

TEST(MemoryRegions, AWalkAndASingleQuestionAgree)
{
    static int variable = 0;
    auto const heap = std::make_unique<char[]>(100);
    Pages const pages(0x10000, MEM_RESERVE, PAGE_READWRITE);
    for (void const * const asked :
         {reinterpret_cast<void const *>(&Query), static_cast<void const *>(&variable),
          static_cast<void const *>(heap.get()), static_cast<void const *>(pages.At(3))})
    {
        MEMORY_BASIC_INFORMATION walked{};
        for (char * place = nullptr; VirtualQuery(place, &walked, sizeof(walked)) != 0; place += walked.RegionSize)
        {
            if (place + walked.RegionSize > asked)
            {
                break;
            }
        }
        MEMORY_BASIC_INFORMATION const single = Query(asked);
        EXPECT_EQ(walked.AllocationBase, single.AllocationBase);
        EXPECT_EQ(walked.State, single.State);
        EXPECT_EQ(walked.Protect, single.Protect);
        EXPECT_EQ(walked.Type, single.Type);
    }
}

TEST(MemoryRegions, AWalkSeesWhatChangesOnTheWay)
{
    Pages const pages(4 * page, MEM_RESERVE, PAGE_READWRITE);
    MEMORY_BASIC_INFORMATION region{};
    char * place = nullptr;
    while (place < pages.At(0) && VirtualQuery(place, &region, sizeof(region)) != 0)
    {
        place += region.RegionSize;
    }
    ASSERT_EQ(pages.At(0), place);
    ASSERT_NE(nullptr, VirtualAlloc(pages.At(0), page, MEM_COMMIT, PAGE_READWRITE));
    ExpectRegion(place, pages.At(0), pages.At(0), 1, MEM_COMMIT, PAGE_READWRITE);
}

TEST(MemoryRegions, AddressesBeyondTheLastOneAndShortRecordsFail)
{
    MEMORY_BASIC_INFORMATION region{};
    auto const query = [&region](ULONG_PTR address, SIZE_T size)
    { return ErrorOf([&] { return VirtualQuery(reinterpret_cast<void *>(address), &region, size); }); };
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, query(~ULONG_PTR{0}, sizeof(region)));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, query(~ULONG_PTR{0} / 2 + 1, sizeof(region)));
    EXPECT_EQ(DWORD{ERROR_BAD_LENGTH}, query(0x10000, sizeof(region) - 1));
    EXPECT_EQ(sizeof(region), VirtualQuery(&region, &region, sizeof(region) + 100));
    EXPECT_EQ(DWORD{MEM_FREE}, Query(nullptr).State);
    EXPECT_EQ(DWORD{PAGE_NOACCESS}, Query(nullptr).Protect);
    EXPECT_EQ(nullptr, Query(nullptr).AllocationBase);
}

} // namespace
