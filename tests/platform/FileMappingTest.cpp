#include <cstdint>

#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

#include <gtest/gtest.h>

namespace
{

constexpr HANDLE noMapping = nullptr;
constexpr DWORD granularity = 65536;
constexpr std::size_t fileSize = 100000;

class FileMappings : public testing::Test
{
protected:
    FileMappings()
    {
        std::string content(fileSize, '\0');
        for (std::size_t i = 0; i < fileSize; ++i)
        {
            content[i] = static_cast<char>(i % 251);
        }
        folder.Write("file", content);
    }
    ScopedHandle Open(DWORD access = readWrite) const
    {
        return ScopedHandle(Win32Path(folder / "file"), access, shareAll, OPEN_EXISTING);
    }
    static ScopedHandle Map(HANDLE file, DWORD protection, DWORD size = 0)
    {
        return ScopedHandle(CreateFileMappingW(file, nullptr, protection, 0, size, nullptr));
    }

    ScratchFolder folder;
};

/// A view that ends itself.
class View
{
public:
    View(HANDLE mapping, DWORD access, DWORD offset, SIZE_T count)
        : bytes(static_cast<char *>(MapViewOfFile(mapping, access, 0, offset, count))), error(GetLastError())
    {
    }
    View(View const &) = delete;
    View & operator=(View const &) = delete;
    ~View()
    {
        if (bytes != nullptr)
        {
            UnmapViewOfFile(bytes);
        }
    }
    char * Bytes() const
    {
        return bytes;
    }
    DWORD Error() const
    {
        return bytes != nullptr ? 0 : error;
    }

private:
    char * bytes;
    DWORD error;
};

TEST_F(FileMappings, AViewShowsTheFileFromItsOffset)
{
    ScopedHandle const file = Open(GENERIC_READ);
    SetLastError(0xBEEF);
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    ASSERT_TRUE(mapping.IsOpen());
    EXPECT_EQ(GetLastError(), 0u);
    View const whole(mapping, FILE_MAP_READ, 0, 0);
    View const part(mapping, FILE_MAP_READ, granularity, 100);
    ASSERT_NE(whole.Bytes(), nullptr);
    ASSERT_NE(part.Bytes(), nullptr);
    EXPECT_EQ(reinterpret_cast<ULONG_PTR>(whole.Bytes()) % granularity, 0u);
    EXPECT_EQ(std::string(whole.Bytes(), fileSize), folder.Read("file"));
    EXPECT_EQ(std::string(part.Bytes(), 100), folder.Read("file").substr(granularity, 100));
}

TEST_F(FileMappings, WhatIsWrittenGoesToTheFile)
{
    ScopedHandle const file = Open();
    ScopedHandle const mapping = Map(file, PAGE_READWRITE);
    {
        View const view(mapping, FILE_MAP_WRITE, 0, 0);
        ASSERT_NE(view.Bytes(), nullptr);
        view.Bytes()[5] = '!';
        EXPECT_TRUE(FlushViewOfFile(view.Bytes(), 0));
        EXPECT_TRUE(FlushViewOfFile(view.Bytes() + 4097, 10));
    }
    EXPECT_EQ(folder.Read("file")[5], '!');
}

TEST_F(FileMappings, ACopyIsOnesOwn)
{
    for (DWORD const protection : {PAGE_READONLY, PAGE_WRITECOPY})
    {
        ScopedHandle const file = Open(GENERIC_READ);
        ScopedHandle const mapping = Map(file, protection);
        View const view(mapping, FILE_MAP_COPY, 0, 0);
        ASSERT_NE(view.Bytes(), nullptr);
        view.Bytes()[5] = '!';
        EXPECT_NE(folder.Read("file")[5], '!');
    }
}

TEST_F(FileMappings, AnOffsetIsAMultipleOfTheGranularity)
{
    ScopedHandle const file = Open(GENERIC_READ);
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    for (DWORD const offset : {1u, 4096u, 65535u})
    {
        EXPECT_EQ(View(mapping, FILE_MAP_READ, offset, 1).Error(), DWORD{ERROR_MAPPED_ALIGNMENT}) << offset;
    }
}

TEST_F(FileMappings, AViewStaysWithinTheMapping)
{
    ScopedHandle const file = Open(GENERIC_READ);
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    EXPECT_EQ(View(mapping, FILE_MAP_READ, 2 * granularity, 0).Error(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(View(mapping, FILE_MAP_READ, 2 * granularity, 1).Error(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(View(mapping, FILE_MAP_READ, 0, fileSize + 1).Error(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(View(mapping, FILE_MAP_READ, granularity, granularity).Error(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(View(mapping, FILE_MAP_READ, 0, fileSize).Error(), 0u);
    ScopedHandle const small = Map(file, PAGE_READONLY, 10);
    EXPECT_EQ(View(small, FILE_MAP_READ, 0, 11).Error(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(View(small, FILE_MAP_READ, 0, 0).Error(), 0u);
}

TEST_F(FileMappings, TheAccessOfAViewIsHeldAgainstTheMapping)
{
    struct
    {
        DWORD access;
        DWORD readOnly; ///< the protection of a view of a mapping for reading; 0 for ERROR_ACCESS_DENIED
        DWORD readWrite;
    } const rows[] = {
        {FILE_MAP_READ, PAGE_READONLY, PAGE_READONLY},
        {FILE_MAP_WRITE, 0, PAGE_READWRITE},
        {FILE_MAP_READ | FILE_MAP_WRITE, 0, PAGE_READWRITE},
        {FILE_MAP_ALL_ACCESS, 0, PAGE_READWRITE},
        {FILE_MAP_COPY, PAGE_WRITECOPY, PAGE_WRITECOPY},
        {FILE_MAP_COPY | FILE_MAP_READ, PAGE_READONLY, PAGE_READONLY},
        {FILE_MAP_COPY | FILE_MAP_WRITE, 0, PAGE_READWRITE},
        {FILE_MAP_EXECUTE | FILE_MAP_READ, 0, 0},
        {FILE_MAP_EXECUTE | FILE_MAP_WRITE, 0, 0},
        {0, PAGE_NOACCESS, PAGE_NOACCESS},
        {8, PAGE_NOACCESS, PAGE_NOACCESS},
    };
    ScopedHandle const file = Open();
    for (bool const writable : {false, true})
    {
        ScopedHandle const mapping = Map(file, writable ? PAGE_READWRITE : PAGE_READONLY);
        for (auto const & row : rows)
        {
            DWORD const expected = writable ? row.readWrite : row.readOnly;
            View const view(mapping, row.access, 0, 0);
            EXPECT_EQ(view.Error(), expected != 0 ? 0 : DWORD{ERROR_ACCESS_DENIED}) << row.access << writable;
            if (expected != 0)
            {
                MEMORY_BASIC_INFORMATION region{};
                EXPECT_NE(VirtualQuery(view.Bytes(), &region, sizeof region), 0u);
                EXPECT_EQ(region.Protect, expected) << row.access << writable;
                EXPECT_EQ(region.AllocationProtect, expected) << row.access << writable;
                EXPECT_EQ(region.AllocationBase, view.Bytes());
                EXPECT_EQ(region.State, DWORD{MEM_COMMIT});
                EXPECT_EQ(region.Type, DWORD{MEM_MAPPED});
            }
        }
    }
}

TEST_F(FileMappings, AViewIsProtectedForLessThanItWasMadeForAndForNoMore)
{
    struct
    {
        DWORD access;
        DWORD made;
        DWORD refused[3];
        DWORD accepted[2];
    } const rows[] = {
        {FILE_MAP_READ, PAGE_READONLY, {PAGE_READWRITE, PAGE_EXECUTE_READ, 0}, {PAGE_NOACCESS, PAGE_READONLY}},
        {FILE_MAP_COPY, PAGE_WRITECOPY, {PAGE_READWRITE, PAGE_EXECUTE, 0}, {PAGE_READONLY, PAGE_NOACCESS}},
        {0, PAGE_NOACCESS, {PAGE_READONLY, PAGE_READWRITE, PAGE_WRITECOPY}, {PAGE_NOACCESS, PAGE_NOACCESS}},
    };
    ScopedHandle const file = Open(GENERIC_READ);
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    for (auto const & row : rows)
    {
        SCOPED_TRACE(row.access);
        View const view(mapping, row.access, 0, 0);
        ASSERT_NE(view.Bytes(), nullptr);
        DWORD old = 0;
        for (DWORD const protection : row.refused)
        {
            EXPECT_EQ(
                LastErrorOf([&] { return VirtualProtect(view.Bytes(), 10, protection, &old); }),
                DWORD{ERROR_INVALID_PARAMETER})
                << protection;
        }
        for (DWORD const protection : row.accepted)
        {
            EXPECT_TRUE(VirtualProtect(view.Bytes(), 10, protection, &old)) << protection;
            EXPECT_EQ(old, row.made) << protection;
            EXPECT_TRUE(VirtualProtect(view.Bytes(), 10, row.made, &old)) << protection;
            EXPECT_EQ(old, protection);
        }
    }
}

TEST_F(FileMappings, ProtectionIsHeldAgainstAccess)
{
    ScopedHandle const reader = Open(GENERIC_READ);
    ScopedHandle const writer = Open(GENERIC_WRITE);
    auto const map = [](HANDLE file, DWORD protection, DWORD size = 0)
    { return LastErrorOf([&] { return Map(file, protection, size).IsOpen(); }); };
    DWORD const denied = ERROR_ACCESS_DENIED;
    EXPECT_EQ(map(reader, PAGE_READWRITE), denied);
    EXPECT_EQ(map(writer, PAGE_READWRITE), denied);
    EXPECT_EQ(map(writer, PAGE_READONLY), denied);
    for (DWORD const wrong : {0u, 1u, 6u, 0x10002u})
    {
        EXPECT_EQ(map(reader, wrong), DWORD{ERROR_INVALID_PARAMETER}) << wrong;
    }
    ScopedHandle const readOnly = Map(reader, PAGE_READONLY);
    ScopedHandle const copied = Map(reader, PAGE_WRITECOPY);
    EXPECT_EQ(View(readOnly, FILE_MAP_WRITE, 0, 0).Error(), denied);
    EXPECT_EQ(View(copied, FILE_MAP_WRITE, 0, 0).Error(), denied);
    EXPECT_EQ(View(copied, FILE_MAP_READ, 0, 0).Error(), 0u);
}

TEST_F(FileMappings, ALargerSizeGrowsAFileThatIsWritten)
{
    folder.Write("file", "");
    ScopedHandle const file = Open();
    EXPECT_EQ(LastErrorOf([&] { return Map(file, PAGE_READONLY).IsOpen(); }), DWORD{ERROR_FILE_INVALID});
    EXPECT_EQ(LastErrorOf([&] { return Map(file, PAGE_READWRITE).IsOpen(); }), DWORD{ERROR_FILE_INVALID});
    EXPECT_EQ(LastErrorOf([&] { return Map(file, PAGE_READONLY, 10).IsOpen(); }), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(LastErrorOf([&] { return Map(file, PAGE_WRITECOPY, 10).IsOpen(); }), DWORD{ERROR_NOT_ENOUGH_MEMORY});
    EXPECT_EQ(GetFileSize(file, nullptr), 0u);
    ScopedHandle const mapping = Map(file, PAGE_READWRITE, 5000);
    ASSERT_TRUE(mapping.IsOpen());
    EXPECT_EQ(GetFileSize(file, nullptr), 5000u);
    EXPECT_EQ(
        LastErrorOf([&] { return CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0x80000000, 0, nullptr); }),
        DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(FileMappings, AViewOutlivesItsHandles)
{
    ScopedHandle file = Open();
    ScopedHandle mapping = Map(file, PAGE_READWRITE);
    View const view(mapping, FILE_MAP_WRITE, 0, 0);
    file.Close();
    mapping.Close();
    ASSERT_NE(view.Bytes(), nullptr);
    view.Bytes()[0] = '!';
    EXPECT_EQ(folder.Read("file")[0], '!');
}

TEST_F(FileMappings, AMappedFileIsNotCut)
{
    ScopedHandle const file = Open();
    ScopedHandle mapping = Map(file, PAGE_READWRITE);
    SetFilePointer(file, 10, nullptr, FILE_BEGIN);
    EXPECT_EQ(LastErrorOf([&] { return SetEndOfFile(file); }), DWORD{ERROR_USER_MAPPED_FILE});
    ScopedHandle const emptied(Win32Path(folder / "file"), readWrite, shareAll, CREATE_ALWAYS);
    EXPECT_EQ(emptied.Error(), DWORD{ERROR_USER_MAPPED_FILE});
    EXPECT_EQ(GetFileSize(file, nullptr), fileSize);
    SetFilePointer(file, 200000, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file)) << "growing is no harm";
    mapping.Close();
    SetFilePointer(file, 10, nullptr, FILE_BEGIN);
    EXPECT_TRUE(SetEndOfFile(file));
}

TEST_F(FileMappings, UnmappingTakesTheAddressOfAView)
{
    ScopedHandle const file = Open();
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    LPVOID const view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_EQ(LastErrorOf([&] { return UnmapViewOfFile(view); }), DWORD{ERROR_INVALID_ADDRESS});
    EXPECT_EQ(LastErrorOf([&] { return UnmapViewOfFile(nullptr); }), DWORD{ERROR_INVALID_ADDRESS});
    EXPECT_EQ(LastErrorOf([&] { return FlushViewOfFile(view, 10); }), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(FileMappings, HandlesOfOtherKindsAreNone)
{
    ScopedHandle const file = Open();
    ScopedHandle const mapping = Map(file, PAGE_READONLY);
    DWORD const invalid = ERROR_INVALID_HANDLE;
    EXPECT_EQ(View(file, FILE_MAP_READ, 0, 0).Error(), invalid);
    EXPECT_EQ(View(noMapping, FILE_MAP_READ, 0, 0).Error(), invalid);
    EXPECT_EQ(LastErrorOf([&] { return Map(mapping, PAGE_READONLY).IsOpen(); }), invalid);
}

TEST_F(FileMappings, MemoryCanBeMappedWithoutAFile)
{
    ScopedHandle const mapping = Map(INVALID_HANDLE_VALUE, PAGE_READWRITE, 100);
    ASSERT_TRUE(mapping.IsOpen());
    View const one(mapping, FILE_MAP_WRITE, 0, 0);
    View const two(mapping, FILE_MAP_READ, 0, 0);
    ASSERT_TRUE(one.Bytes() != nullptr && two.Bytes() != nullptr);
    one.Bytes()[99] = '!';
    EXPECT_EQ(two.Bytes()[99], '!');
    EXPECT_EQ(
        LastErrorOf([&] { return Map(INVALID_HANDLE_VALUE, PAGE_READWRITE).IsOpen(); }),
        DWORD{ERROR_INVALID_PARAMETER});
}

TEST(SystemInformation, TellsPagesGranularityAndProcessors)
{
    SYSTEM_INFO information;
    GetSystemInfo(&information);
    EXPECT_EQ(information.dwPageSize, 4096u);
    EXPECT_EQ(information.dwAllocationGranularity, granularity);
    EXPECT_GE(information.dwNumberOfProcessors, 1u);
    EXPECT_NE(information.dwActiveProcessorMask & 1, 0u);
    EXPECT_LT(information.lpMinimumApplicationAddress, information.lpMaximumApplicationAddress);
}

} // namespace
