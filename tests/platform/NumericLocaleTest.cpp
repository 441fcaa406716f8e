#include <atomic>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/config/SectionedConfigData.h>
#include <kvcore/config/SysRegKey.h>
#include <kvcore/platform/NumericLocale.h>
#include <kvcore/platform/win32.h>
#include <support/ScratchKey.h>

namespace
{

std::string CurrentName()
{
    return std::setlocale(LC_NUMERIC, nullptr);
}

/// How the C library of this thread reads and writes one and a half.
std::string PrintHalf()
{
    WCHAR buffer[20] = {};
    _snwprintf(buffer, 20, TEXT("%.1f"), 1.5);
    WString const text(buffer);
    return std::string(text.begin(), text.end());
}

#ifdef _WIN32 // Locales have names of their own there, and every system has all of them.
/// Sets the process's numbers to a locale with a comma while it lives.
class CommaLocale
{
public:
    CommaLocale() : saved(CurrentName())
    {
        EXPECT_NE(std::setlocale(LC_NUMERIC, "German"), nullptr);
    }
    ~CommaLocale()
    {
        std::setlocale(LC_NUMERIC, saved.c_str());
    }

private:
    std::string saved;
};
#else
/// A scratch folder with a locale of our own in the C library's compiled form, so that no locale need be installed:
/// the category's mark, the count of its items, their offsets, and the items: decimal point, separator of thousands,
/// grouping, the first two as wide characters, and the encoding.
class CompiledLocale
{
public:
    CompiledLocale(std::string const & point, std::uint32_t widePoint)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvcore-locale-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        folder = pattern;
        std::filesystem::create_directory(folder / "test");
        std::string items;
        std::vector<std::uint32_t> words{0x20031115u ^ LC_NUMERIC, 6};
        std::string const wide[] = {std::string(reinterpret_cast<char const *>(&widePoint), 4), std::string(4, 0)};
        for (std::string const & item :
             {point + '\0', std::string(1, 0), std::string(1, 0), wide[0], wide[1], std::string("UTF-8") + '\0'})
        {
            items.resize((items.size() + 3) / 4 * 4);
            words.push_back(static_cast<std::uint32_t>(8 * sizeof(std::uint32_t) + items.size()));
            items += item;
        }
        std::ofstream file(folder / "test" / "LC_NUMERIC", std::ios::binary);
        file.write(
            reinterpret_cast<char const *>(words.data()),
            static_cast<std::streamsize>(words.size() * sizeof(words[0])));
        file << items;
    }
    ~CompiledLocale()
    {
        std::filesystem::remove_all(folder);
    }
    CompiledLocale(CompiledLocale const &) = delete;
    CompiledLocale & operator=(CompiledLocale const &) = delete;

    std::filesystem::path folder;
};

/// Sets the process's numbers to a locale with a comma, or another point, while it lives.
class CommaLocale
{
public:
    explicit CommaLocale(std::string const & point = ",", std::uint32_t widePoint = ',')
        : compiled(point, widePoint), saved(CurrentName())
    {
        setenv("LOCPATH", compiled.folder.c_str(), 1);
        // Each has a name of its own, because the C library keeps what it has read under its name.
        static int count = 0;
        std::string const name = "test" + std::to_string(++count);
        std::filesystem::rename(compiled.folder / "test", compiled.folder / name);
        EXPECT_NE(std::setlocale(LC_NUMERIC, name.c_str()), nullptr);
        unsetenv("LOCPATH");
    }
    ~CommaLocale()
    {
        std::setlocale(LC_NUMERIC, saved.c_str());
    }

private:
    CompiledLocale compiled;
    std::string saved;
};
#endif

/// One and a half by the call that no locale touches.
std::string PrintHalfInvariant()
{
    auto const print = [](WCHAR * buffer, std::size_t capacity, WCHAR const * format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        int const length = kv::platform::PrintInvariant(buffer, capacity, format, arguments);
        va_end(arguments);
        return length;
    };
    WCHAR buffer[20] = {};
    EXPECT_EQ(print(buffer, 20, TEXT("%.1f"), 1.5), 3);
    WString const text(buffer);
    return std::string(text.begin(), text.end());
}

} // namespace

TEST(InvariantNumbers, HaveThePointOfTheCLocale)
{
    CommaLocale const comma;
    EXPECT_EQ(PrintHalf(), "1,5");
    EXPECT_EQ(PrintHalfInvariant(), "1.5");
}

TEST(InvariantNumbers, LeaveTheLocaleAsItIs)
{
    CommaLocale const comma;
    std::string const name = CurrentName();
    EXPECT_EQ(PrintHalfInvariant(), "1.5");
    EXPECT_EQ(PrintHalf(), "1,5");
    EXPECT_EQ(CurrentName(), name);
}

TEST(InvariantNumbers, AreThoseOfStoredSettings)
{
    CommaLocale const comma;
    String text;
    double value = 0;
    SectionedConfigData data;
    EXPECT_TRUE(data.SetFloat(TEXT("s"), TEXT("k"), 1.5));
    EXPECT_TRUE(data.GetString(TEXT("s"), TEXT("k"), text));
    EXPECT_EQ(text, TEXT("1.500000"));
    EXPECT_TRUE(data.GetFloat(TEXT("s"), TEXT("k"), value));
    EXPECT_EQ(value, 1.5);
    ScratchKey const scratch;
    SysRegKey key = SysRegKey(HKEY_CURRENT_USER).OpenSubkey(scratch.Path(), KEY_ALL_ACCESS);
    EXPECT_TRUE(key.SetFloat(TEXT("v"), 2.5));
    EXPECT_TRUE(key.GetString(TEXT("v"), text));
    EXPECT_EQ(text, TEXT("2.500000"));
    EXPECT_TRUE(key.GetFloat(TEXT("v"), value));
    EXPECT_EQ(value, 2.5);
}

TEST(InvariantNumbers, LeaveOtherThreadsAlone)
{
    CommaLocale const comma;
    std::string const outside = PrintHalf();
    std::atomic<int> wrong{0};
    std::atomic<bool> done{false};

    // One thread prints by the process's locale while the others print without it.
    std::thread watcher(
        [&]
        {
            while (!done)
            {
                wrong += PrintHalf() != outside;
            }
        });
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
    {
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 300; ++i)
                {
                    wrong += PrintHalf() != outside;
                    wrong += PrintHalfInvariant() != "1.5";
                }
            });
    }
    for (std::thread & thread : threads)
    {
        thread.join();
    }
    done = true;
    watcher.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(PrintHalf(), outside);
}

#ifndef _WIN32 // The point of a locale is one narrow character there.
TEST(InvariantNumbers, APointOfSeveralBytesIsPrintedAsOneElementByTheOthers)
{
    CommaLocale const arabic("\xD9\xAB", 0x066B);
    WCHAR buffer[20] = {};
    EXPECT_EQ(_snwprintf(buffer, 20, TEXT("%6.1f"), 1.5), 6);
    EXPECT_EQ(WString(buffer), TEXT("   1\x066B") TEXT("5"));
    EXPECT_EQ(PrintHalfInvariant(), "1.5");
}
#endif
