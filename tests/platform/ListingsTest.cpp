#ifndef _WIN32 // The kept listings of directories are this layer's own.

#    include <string>

#    include <gtest/gtest.h>

#    include <kvcore/platform/linux/paths/Listings.h>
#    include <kvcore/platform/win32.h>
#    include <support/ScratchPaths.h>

namespace
{

using namespace kv::platform;

/// Directories count as settled at once, and few of them are kept.
class Listings : public testing::Test
{
protected:
    Listings()
    {
        SetListingBounds({0, 0, -1}); // forget those of other tests
    }
    ~Listings() override
    {
        SetListingBounds({});
    }
    void MakeFolder(std::string const & name, int files) const
    {
        for (int i = 0; i < files; ++i)
        {
            folder.Make(name + "/File" + std::to_string(i));
        }
    }
    /// A look at a file in another case, for which the folder is listed.
    bool Finds(std::string const & name) const
    {
        WString path = folder(WString(name.begin(), name.end()));
        return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    ScratchPaths folder;
};

TEST_F(Listings, AreKeptUpToANumberTheLatestUsed)
{
    for (char const * const name : {"a", "b", "c"})
    {
        MakeFolder(name, 3);
    }
    SetListingBounds({2, 1000, -1});
    EXPECT_TRUE(Finds("a\\fILE1"));
    EXPECT_TRUE(Finds("b\\fILE1"));
    EXPECT_EQ(CountKeptListings().listings, 2u);
    EXPECT_EQ(CountKeptListings().names, 6u);
    EXPECT_TRUE(Finds("a\\fILE2"));
    EXPECT_TRUE(Finds("c\\fILE1"));
    EXPECT_EQ(CountKeptListings().listings, 2u);
    EXPECT_EQ(CountKeptListings().names, 6u);
    EXPECT_TRUE(Finds("b\\fILE1")) << "what is forgotten is read again";
}

TEST_F(Listings, AreKeptUpToANumberOfNamesButTheLast)
{
    MakeFolder("small", 4);
    MakeFolder("medium", 5);
    MakeFolder("large", 30);
    SetListingBounds({10, 10, -1});
    EXPECT_TRUE(Finds("small\\fILE0"));
    EXPECT_TRUE(Finds("medium\\fILE0"));
    EXPECT_EQ(CountKeptListings().names, 9u);
    EXPECT_TRUE(Finds("large\\fILE29"));
    EXPECT_EQ(CountKeptListings().listings, 1u);
    EXPECT_EQ(CountKeptListings().names, 30u);
    EXPECT_TRUE(Finds("small\\fILE0"));
    EXPECT_EQ(CountKeptListings().names, 4u);
}

TEST_F(Listings, ThatAreOutOfDateAreForgotten)
{
    MakeFolder("a", 3);
    SetListingBounds({2, 1000, -1});
    EXPECT_TRUE(Finds("a\\fILE1"));
    EXPECT_FALSE(Finds("a\\fILE9"));
    std::filesystem::last_write_time(folder / "a", std::filesystem::file_time_type());
    folder.Make("a/File9");
    EXPECT_TRUE(Finds("a\\fILE9"));
    EXPECT_EQ(CountKeptListings().listings, 1u);
    EXPECT_EQ(CountKeptListings().names, 4u);
}

TEST_F(Listings, OfAFolderThatChangesAreNotKept)
{
    MakeFolder("a", 3);
    SetListingBounds({});
    EXPECT_TRUE(Finds("a\\fILE1"));
    EXPECT_EQ(CountKeptListings().listings, 0u);
}

} // namespace

#endif
