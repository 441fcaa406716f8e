#ifndef _WIN32 // This layer's own readers of modules. On Windows the system has them.

#    include <cstdint>
#    include <filesystem>
#    include <fstream>
#    include <iterator>
#    include <string>
#    include <vector>

#    include <kvcore/platform/win32.h>
#    include <support/ScopedHandle.h>
#    include <support/ScratchFolder.h>

#    include <gtest/gtest.h>

namespace
{

/// A file beside the test's own program.
std::string BytesBesideProgram(char const * name)
{
    std::ifstream file(std::filesystem::read_symlink("/proc/self/exe").parent_path() / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// What was found in a module, and where it must lie.
struct Findings
{
    char const * begin;
    char const * end;
    std::size_t found = 0;
    std::size_t outside = 0;
    unsigned sum = 0;
};

BOOL CALLBACK TakeName(HMODULE module, WCHAR const * type, WCHAR * name, LONG_PTR argument)
{
    Findings & findings = *reinterpret_cast<Findings *>(argument);
    HRSRC const resource = FindResourceW(module, name, type);
    if (resource == nullptr)
    {
        return TRUE;
    }
    auto const * const data = static_cast<char const *>(LockResource(LoadResource(module, resource)));
    DWORD const size = SizeofResource(module, resource);
    ++findings.found;
    if (data < findings.begin || data > findings.end || size > std::size_t(findings.end - data))
    {
        ++findings.outside;
        return TRUE;
    }
    for (DWORD i = 0; i < size; ++i)
    {
        findings.sum += static_cast<unsigned char>(data[i]);
    }
    return TRUE;
}

BOOL CALLBACK TakeType(HMODULE module, WCHAR * type, LONG_PTR argument)
{
    EnumResourceNamesW(module, type, TakeName, argument);
    return TRUE;
}

/// Looks through all that is left in a file. Gives how many resources there are.
std::size_t LookThrough(WString const & path, std::size_t fileSize, DWORD flags)
{
    HMODULE const module = LoadLibraryExW(path.c_str(), nullptr, flags);
    if (module == nullptr)
    {
        EXPECT_NE(GetLastError(), 0u);
        return 0;
    }
    auto const base = reinterpret_cast<std::uintptr_t>(module) & ~std::uintptr_t{3};
    auto const * const begin = reinterpret_cast<char const *>(base);
    Findings findings{begin, begin + fileSize};
    EnumResourceTypesW(module, TakeType, reinterpret_cast<LONG_PTR>(&findings));
    EXPECT_EQ(findings.outside, 0u);
    WCHAR text[100];
    for (UINT const id : {1u, 17u, 18u, 47u, 65535u})
    {
        EXPECT_LT(LoadStringW(module, id, text, 100), 100);
    }
    EXPECT_TRUE(FreeLibrary(module));
    return findings.found;
}

/// Reads what is left of a file's version block.
void AskForVersion(WString const & path)
{
    DWORD zero = 0;
    DWORD const size = GetFileVersionInfoSizeW(path.c_str(), &zero);
    std::vector<char> block(size);
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, block.data()))
    {
        return;
    }
    for (WCHAR const * const name : {u"\\", u"\\VarFileInfo\\Translation", u"\\StringFileInfo\\040904B0\\CompanyName"})
    {
        void * value = nullptr;
        UINT length = 0;
        if (VerQueryValueW(block.data(), name, &value, &length))
        {
            auto const * const data = static_cast<char const *>(value);
            EXPECT_TRUE(data >= block.data() && data <= block.data() + size);
        }
    }
}

struct Form
{
    char const * file;
    DWORD flags; ///< of loading: a library would be run by the system's own loader otherwise
};

class LinuxDamagedModules : public testing::TestWithParam<Form>
{
protected:
    void SetUp() override
    {
        whole = BytesBesideProgram(GetParam().file);
        ASSERT_GT(whole.size(), 1000u) << GetParam().file;
    }
    std::size_t Found(std::string const & bytes)
    {
        folder.Write("damaged.bir", bytes);
        WString const path = Win32Path(folder / "damaged.bir");
        AskForVersion(path);
        return LookThrough(path, bytes.size(), GetParam().flags);
    }
    /// Places all over the file, not too many.
    std::size_t Step() const
    {
        return whole.size() / 300 + 1;
    }

    std::string whole;
    ScratchFolder const folder;
};

TEST_P(LinuxDamagedModules, ThatAreCutOffHaveNoMoreThanIsLeft)
{
    std::size_t const all = Found(whole);
    EXPECT_GE(all, 5u);
    for (std::size_t size = 0; size < whole.size(); size += Step())
    {
        EXPECT_LE(Found(whole.substr(0, size)), all) << size;
    }
    EXPECT_EQ(Found(whole), all) << "nothing is left of what was there before";
}

TEST_P(LinuxDamagedModules, WithWrongBytesHaveNothingOutsideOfTheFile)
{
    std::size_t const all = Found(whole);
    std::size_t unharmed = 0;
    std::size_t tried = 0;
    for (std::size_t place = 0; place < whole.size(); place += Step())
    {
        for (unsigned const value : {0x00u, 0x7Fu, 0x80u, 0xFFu})
        {
            SCOPED_TRACE(place);
            std::string damaged = whole;
            damaged[place] = static_cast<char>(value);
            unharmed += Found(damaged) == all ? 1 : 0; // which looks that all lies within
            ++tried;
        }
    }
    EXPECT_GT(unharmed, tried / 2) << "most bytes are not what finds a resource";
    EXPECT_EQ(Found(whole), all) << "nothing is left of what was there before";
}

INSTANTIATE_TEST_SUITE_P(
    Forms, LinuxDamagedModules,
    testing::Values(
        Form{"TestModule.so", LOAD_LIBRARY_AS_DATAFILE}, Form{"TestResources.bir", LOAD_LIBRARY_AS_DATAFILE},
        Form{"TestResources.bir", 0}),
    [](auto const & form) {
        return std::string(form.index == 0 ? "LibraryAsData" : form.index == 1 ? "FileAsData" : "FileAsModule");
    });

} // namespace

#endif
