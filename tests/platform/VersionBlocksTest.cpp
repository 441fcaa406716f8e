#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/platform/win32.h>
#include <support/ScopedHandle.h>
#include <support/ScratchFolder.h>

namespace
{

/// The paths of the same resources in both forms that carry them.
class VersionBlocks : public testing::TestWithParam<WCHAR const *>
{
protected:
    void SetUp() override
    {
        HMODULE const module = LoadLibraryW(GetParam());
        ASSERT_NE(nullptr, module);
        WCHAR text[1024];
        path.assign(text, GetModuleFileNameW(module, text, 1024));
        FreeLibrary(module);
        DWORD zero = 5;
        block.resize(GetFileVersionInfoSizeW(path.c_str(), &zero));
        EXPECT_EQ(0u, zero);
        ASSERT_GE(block.size(), 292u);
        ASSERT_TRUE(GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()));
    }

    /// A text with the NUL that it is counted with, or "-" if it is not there.
    WString Text(WCHAR const * name)
    {
        void * value = nullptr;
        UINT length = 77;
        if (!VerQueryValueW(block.data(), name, &value, &length))
        {
            EXPECT_EQ(0u, length);
            EXPECT_EQ(DWORD{ERROR_RESOURCE_TYPE_NOT_FOUND}, GetLastError());
            return TEXT("-");
        }
        WString text(length, 0);
        std::memcpy(text.data(), value, length * 2);
        return text;
    }

    WString path;
    std::vector<char> block;
};

INSTANTIATE_TEST_SUITE_P(
    Forms, VersionBlocks, testing::Values(TEXT("TestModule"), TEXT("TestResources.bir")),
    [](auto const & form) { return form.index == 0 ? "Library" : "ResourceFile"; });

TEST_P(VersionBlocks, TheFixedPartHasBothVersions)
{
    for (WCHAR const * const name : {TEXT("\\"), TEXT("")})
    {
        void * value = nullptr;
        UINT length = 0;
        ASSERT_TRUE(VerQueryValueW(block.data(), name, &value, &length));
        ASSERT_EQ(sizeof(VS_FIXEDFILEINFO), length);
        VS_FIXEDFILEINFO fixed;
        std::memcpy(&fixed, value, sizeof(fixed));
        EXPECT_EQ(0xFEEF04BDu, fixed.dwSignature);
        EXPECT_EQ(0x00010002u, fixed.dwFileVersionMS);
        EXPECT_EQ(0x00030004u, fixed.dwFileVersionLS);
        EXPECT_EQ(0x00050006u, fixed.dwProductVersionMS);
        EXPECT_EQ(0x00070008u, fixed.dwProductVersionLS);
        EXPECT_EQ(0x3Fu, fixed.dwFileFlagsMask);
        EXPECT_EQ(0x40004u, fixed.dwFileOS);
        EXPECT_EQ(2u, fixed.dwFileType);
    }
}

TEST_P(VersionBlocks, TextsAreFoundByLanguageAndNameInAnyCase)
{
    EXPECT_EQ(WString(TEXT("Someone\0"), 8), Text(TEXT("\\StringFileInfo\\040904B0\\CompanyName")));
    EXPECT_EQ(WString(TEXT("Someone\0"), 8), Text(TEXT("\\stringfileinfo\\040904b0\\companyname")));
    EXPECT_EQ(WString(TEXT("Someone\0"), 8), Text(TEXT("StringFileInfo\\\\040904B0\\CompanyName\\")));
    EXPECT_EQ(WString(TEXT("Resources for tests\0"), 20), Text(TEXT("\\StringFileInfo\\040904B0\\FileDescription")));
    EXPECT_EQ(1u, Text(TEXT("\\StringFileInfo\\040904B0\\Empty")).size());
    EXPECT_EQ(TEXT(""), Text(TEXT("\\StringFileInfo\\040904B0")));
    EXPECT_EQ(TEXT(""), Text(TEXT("\\StringFileInfo")));
    EXPECT_EQ(TEXT("-"), Text(TEXT("\\StringFileInfo\\040904B0\\None")));
    EXPECT_EQ(TEXT("-"), Text(TEXT("\\StringFileInfo\\040704B0\\CompanyName")));
    EXPECT_EQ(TEXT("-"), Text(TEXT("\\CompanyName")));
}

TEST_P(VersionBlocks, TheTranslationNamesTheLanguages)
{
    void * value = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), TEXT("\\VarFileInfo\\Translation"), &value, &length));
    ASSERT_EQ(4u, length);
    WORD translation[2];
    std::memcpy(translation, value, sizeof(translation));
    EXPECT_EQ(0x0409, translation[0]);
    EXPECT_EQ(1200, translation[1]);
}

TEST(VersionBlocksOfOthers, FilesWithoutABlockHaveNone)
{
    ScratchFolder const folder;
    folder.Write("text", std::string(1000, 'x'));
    struct
    {
        WString name;
        DWORD error;
    } const cases[] = {
        {Win32Path(folder / "missing.so"), ERROR_FILE_NOT_FOUND},
        {Win32Path(folder / "text"), ERROR_RESOURCE_DATA_NOT_FOUND},
    };
    for (auto const & attempt : cases)
    {
        DWORD zero = 5;
        SetLastError(0);
        EXPECT_EQ(0u, GetFileVersionInfoSizeW(attempt.name.c_str(), &zero));
        EXPECT_EQ(attempt.error, GetLastError());
        char block[100];
        SetLastError(0);
        EXPECT_FALSE(GetFileVersionInfoW(attempt.name.c_str(), 0, sizeof(block), block));
        EXPECT_EQ(attempt.error, GetLastError());
    }
    DWORD zero = 0;
    EXPECT_EQ(0u, GetFileVersionInfoSizeW(nullptr, &zero));
}

} // namespace
