// Bad pointers in calls of the registry, of profiles, of the environment and of system parameters: the fault leaves the
// call as an exception, and nothing stays locked or half done.

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <kvcore/frame/SEHException.h>
#include <kvcore/platform/win32.h>
#include <support/ScratchFolder.h>
#include <support/ScratchKey.h>

namespace
{

#ifdef _WIN32 // The system answers some bad pointers with an error of its own.
constexpr bool mayRefuse = true;
#else
constexpr bool mayRefuse = false;
#endif

/// Memory that begins well and ends in a page that nobody may touch: `size` bytes are good.
class EdgeOfMemory
{
public:
    explicit EdgeOfMemory(std::size_t size)
        : pages(static_cast<char *>(VirtualAlloc(nullptr, 2 * pageSize, MEM_RESERVE, PAGE_NOACCESS)))
    {
        VirtualAlloc(pages, pageSize, MEM_COMMIT, PAGE_READWRITE);
        start = pages + pageSize - size;
        std::fill(start, pages + pageSize, 'x');
    }
    ~EdgeOfMemory()
    {
        VirtualFree(pages, 0, MEM_RELEASE);
    }
    EdgeOfMemory(EdgeOfMemory const &) = delete;
    EdgeOfMemory & operator=(EdgeOfMemory const &) = delete;

    template <class T>
    T * As() const
    {
        return reinterpret_cast<T *>(start);
    }

private:
    static constexpr std::size_t pageSize = 0x10000;

    char * const pages;
    char * start;
};

struct Call
{
    char const * what;
    std::function<DWORD()> make;
};

class SettingsFaults : public testing::Test
{
protected:
    SettingsFaults()
    {
        SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\KVCoreFaults"));
        key = MakeKey(HKEY_CURRENT_USER, TEXT("Software\\KVCoreFaults"));
        MakeKey(key, TEXT("below"));
        RegSetValueExW(key, TEXT("text"), 0, REG_SZ, reinterpret_cast<BYTE const *>(TEXT("a text")), 14);
        path = folder.Name("p.ini");
        WritePrivateProfileStringW(TEXT("s"), TEXT("k"), TEXT("a value"), path.c_str());
    }
    ~SettingsFaults() override
    {
        SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\KVCoreFaults"));
    }

    /// Each call faults and is caught, and another thread finds everything in order.
    void ExpectCaught(std::vector<Call> const & calls)
    {
        for (Call const & call : calls)
        {
            bool isCaught = false;
            DWORD result = 0;
            {
                SEHTryCatchEnabler const scope(TEXT("faults"));
                try
                {
                    result = call.make();
                }
                catch (SEHException const & fault)
                {
                    isCaught = fault.GetCode() == STATUS_ACCESS_VIOLATION;
                }
            }
            EXPECT_TRUE(isCaught || (mayRefuse && result != 0)) << call.what << ": " << result;
            std::thread([&] { ExpectInOrder(call.what); }).join();
        }
    }

    void ExpectInOrder(char const * what)
    {
        ScopedKey const own = OpenKey(HKEY_CURRENT_USER, TEXT("Software\\KVCoreFaults"));
        DWORD const number = 7;
        EXPECT_EQ(Code(RegSetValueExW(own, TEXT("n"), 0, REG_DWORD, reinterpret_cast<BYTE const *>(&number), 4)), 0u)
            << what;
        WCHAR text[20];
        DWORD size = sizeof text;
        EXPECT_EQ(
            Code(RegQueryValueExW(own, TEXT("text"), nullptr, nullptr, reinterpret_cast<BYTE *>(text), &size)), 0u)
            << what;
        EXPECT_EQ(WString(text), TEXT("a text")) << what;
        ScopedKey const made = MakeKey(own, TEXT("made"));
        EXPECT_NE(made, nullptr) << what;
        EXPECT_EQ(SHDeleteKeyW(own, TEXT("made")), 0u) << what;
        EXPECT_EQ(GetPrivateProfileStringW(TEXT("s"), TEXT("k"), TEXT(""), text, 20, path.c_str()), 7u) << what;
        EXPECT_NE(
            WritePrivateProfileStringW(TEXT("s"), TEXT("n"), what[0] == 'a' ? TEXT("1") : TEXT("2"), path.c_str()), 0)
            << what;
        EXPECT_NE(SetEnvironmentVariableW(TEXT("KVCORE_FAULTS"), TEXT("1")), 0) << what;
        EXPECT_EQ(GetEnvironmentVariableW(TEXT("KVCORE_FAULTS"), text, 20), 1u) << what;
    }

    template <class T>
    static T * Bad()
    {
        return reinterpret_cast<T *>(std::uintptr_t{0x10});
    }

    ScratchFolder folder;
    WString path;
    ScopedKey key;
};

} // namespace

TEST_F(SettingsFaults, OfTheRegistrysCallsAreCaughtAndLeaveItInOrder)
{
    EdgeOfMemory const edge(8);
    EdgeOfMemory const odd(7);
    DWORD size = 100;
    DWORD type = 0;
    HKEY opened = nullptr;
    WCHAR name[100];
    BYTE data[100];
    ExpectCaught({
        {"data to set", [&] { return Code(RegSetValueExW(key, TEXT("v"), 0, REG_BINARY, Bad<BYTE>(), 100)); }},
        {"long data to set", [&] { return Code(RegSetValueExW(key, TEXT("v"), 0, 3, Bad<BYTE>(), 1 << 20)); }},
        {"data that ends", [&] { return Code(RegSetValueExW(key, TEXT("v"), 0, REG_BINARY, edge.As<BYTE>(), 9)); }},
        {"long data that ends", [&] { return Code(RegSetValueExW(key, TEXT("v"), 0, 3, edge.As<BYTE>(), 1 << 16)); }},
        {"a name to set", [&] { return Code(RegSetValueExW(key, Bad<WCHAR>(), 0, REG_BINARY, data, 4)); }},
        {"a name that ends", [&] { return Code(RegSetValueExW(key, edge.As<WCHAR>(), 0, REG_BINARY, data, 4)); }},
        {"a name to query", [&] { return Code(RegQueryValueExW(key, Bad<WCHAR>(), nullptr, &type, data, &size)); }},
        {"room for data",
         [&]
         {
             DWORD room = 100;
             return Code(RegQueryValueExW(key, TEXT("text"), nullptr, &type, Bad<BYTE>(), &room));
         }},
        {"room that ends",
         [&]
         {
             DWORD room = 100;
             return Code(RegQueryValueExW(key, TEXT("text"), nullptr, &type, odd.As<BYTE>(), &room));
         }},
        {"a size", [&] { return Code(RegQueryValueExW(key, TEXT("text"), nullptr, &type, data, Bad<DWORD>())); }},
        {"a type", [&] { return Code(RegQueryValueExW(key, TEXT("text"), nullptr, Bad<DWORD>(), data, &size)); }},
        {"a value's name to delete", [&] { return Code(RegDeleteValueW(key, Bad<WCHAR>())); }},
        {"a path to open", [&] { return Code(RegOpenKeyExW(key, Bad<WCHAR>(), 0, KEY_READ, &opened)); }},
        {"a path that ends", [&] { return Code(RegOpenKeyExW(key, edge.As<WCHAR>(), 0, KEY_READ, &opened)); }},
        {"a place for a key", [&] { return Code(RegOpenKeyExW(key, TEXT("below"), 0, KEY_READ, Bad<HKEY>())); }},
        {"a path to create",
         [&] { return Code(RegCreateKeyExW(key, Bad<WCHAR>(), 0, nullptr, 0, KEY_READ, nullptr, &opened, nullptr)); }},
        {"a path to delete", [&] { return Code(RegDeleteKeyW(key, Bad<WCHAR>())); }},
        {"a tree to delete", [&] { return SHDeleteKeyW(key, Bad<WCHAR>()); }},
        {"a name to list",
         [&]
         {
             DWORD room = 100;
             return Code(RegEnumValueW(key, 0, Bad<WCHAR>(), &room, nullptr, nullptr, nullptr, nullptr));
         }},
        {"data to list",
         [&]
         {
             DWORD room = 100;
             DWORD dataRoom = 100;
             return Code(RegEnumValueW(key, 0, name, &room, nullptr, nullptr, Bad<BYTE>(), &dataRoom));
         }},
        {"a key to list",
         [&]
         {
             DWORD room = 100;
             return Code(RegEnumKeyExW(key, 0, Bad<WCHAR>(), &room, nullptr, nullptr, nullptr, nullptr));
         }},
        {"a size to list",
         [&] { return Code(RegEnumKeyExW(key, 0, name, Bad<DWORD>(), nullptr, nullptr, nullptr, nullptr)); }},
        {"a time to list",
         [&]
         {
             DWORD room = 100;
             return Code(RegEnumKeyExW(key, 0, name, &room, nullptr, nullptr, nullptr, Bad<FILETIME>()));
         }},
        {"a count",
         [&]
         {
             return Code(RegQueryInfoKeyW(
                 key, nullptr, nullptr, nullptr, Bad<DWORD>(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                 nullptr));
         }},
        {"a default text to set", [&] { return Code(RegSetValueW(key, TEXT("below"), REG_SZ, Bad<WCHAR>(), 4)); }},
        {"a default text to query",
         [&]
         {
             LONG room = 100;
             RegSetValueW(key, TEXT("below"), REG_SZ, TEXT("x"), 2);
             return Code(RegQueryValueW(key, TEXT("below"), Bad<WCHAR>(), &room));
         }},
    });
    EXPECT_EQ(Code(RegQueryValueExW(key, TEXT("v"), nullptr, nullptr, nullptr, nullptr)), ERROR_FILE_NOT_FOUND)
        << "nothing of what could not be read is stored";
}

TEST_F(SettingsFaults, OfProfilesCallsAreCaughtAndLeaveThemInOrder)
{
    EdgeOfMemory const edge(8);
    WCHAR text[100];
    auto const get = [&](WCHAR const * section, WCHAR const * name, WCHAR * room)
    { return GetPrivateProfileStringW(section, name, TEXT("none"), room, 100, path.c_str()) == 0 ? 1u : 0u; };
    auto const set = [&](WCHAR const * section, WCHAR const * name, WCHAR const * value)
    { return WritePrivateProfileStringW(section, name, value, path.c_str()) == FALSE ? 1u : 0u; };
    ExpectCaught({
        {"a section to read", [&] { return get(Bad<WCHAR>(), TEXT("k"), text); }},
        {"a key to read", [&] { return get(TEXT("s"), Bad<WCHAR>(), text); }},
        {"a key that ends", [&] { return get(TEXT("s"), edge.As<WCHAR>(), text); }},
        {"room for a text", [&] { return get(TEXT("s"), TEXT("k"), Bad<WCHAR>()); }},
        {"room that ends", [&] { return get(TEXT("s"), TEXT("k"), edge.As<WCHAR>()); }},
        {"room for keys", [&] { return get(TEXT("s"), nullptr, Bad<WCHAR>()); }},
        {"room for lines",
         [&] { return GetPrivateProfileSectionW(TEXT("s"), Bad<WCHAR>(), 100, path.c_str()) == 0 ? 1u : 0u; }},
        {"room for names",
         [&] { return GetPrivateProfileSectionNamesW(Bad<WCHAR>(), 100, path.c_str()) == 0 ? 1u : 0u; }},
        {"a section to write", [&] { return set(Bad<WCHAR>(), TEXT("v"), TEXT("x")); }},
        {"a key to write", [&] { return set(TEXT("s"), Bad<WCHAR>(), TEXT("x")); }},
        {"a text to write", [&] { return set(TEXT("s"), TEXT("v"), Bad<WCHAR>()); }},
        {"a text that ends", [&] { return set(TEXT("new"), TEXT("v"), edge.As<WCHAR>()); }},
        {"lines to write",
         [&] { return WritePrivateProfileSectionW(TEXT("s"), Bad<WCHAR>(), path.c_str()) == FALSE ? 1u : 0u; }},
        {"lines that end",
         [&] { return WritePrivateProfileSectionW(TEXT("s"), edge.As<WCHAR>(), path.c_str()) == FALSE ? 1u : 0u; }},
        {"a record to write",
         [&] {
             return WritePrivateProfileStructW(TEXT("s"), TEXT("r"), edge.As<char>(), 9, path.c_str()) == FALSE ? 1u
                                                                                                                : 0u;
         }},
        {"a file's name",
         [&]
         { return GetPrivateProfileStringW(TEXT("s"), TEXT("k"), nullptr, text, 100, Bad<WCHAR>()) == 0 ? 1u : 0u; }},
    });
    EXPECT_EQ(GetPrivateProfileStringW(TEXT("s"), TEXT("v"), TEXT(""), text, 100, path.c_str()), 0u);
}

TEST_F(SettingsFaults, OfTheEnvironmentAndOfParametersAreCaught)
{
    EdgeOfMemory const edge(8);
    SetEnvironmentVariableW(TEXT("KVCORE_FAULTY"), TEXT("a longer value"));
    ExpectCaught({
        {"a name to read", [&] { return GetEnvironmentVariableW(Bad<WCHAR>(), nullptr, 0) == 0 ? 1u : 0u; }},
        {"room for a value",
         [&] { return GetEnvironmentVariableW(TEXT("KVCORE_FAULTY"), Bad<WCHAR>(), 100) == 0 ? 1u : 0u; }},
        {"room that ends",
         [&] { return GetEnvironmentVariableW(TEXT("KVCORE_FAULTY"), edge.As<WCHAR>(), 100) == 0 ? 1u : 0u; }},
        {"a name to set", [&] { return SetEnvironmentVariableW(Bad<WCHAR>(), TEXT("x")) == FALSE ? 1u : 0u; }},
        {"a value to set", [&] { return SetEnvironmentVariableW(TEXT("KVX"), edge.As<WCHAR>()) == FALSE ? 1u : 0u; }},
        {"a text to expand", [&] { return ExpandEnvironmentStringsW(Bad<WCHAR>(), nullptr, 0) == 0 ? 1u : 0u; }},
        {"room for a text",
         [&] { return ExpandEnvironmentStringsW(TEXT("%KVCORE_FAULTY%"), edge.As<WCHAR>(), 100) == 0 ? 1u : 0u; }},
        {"room for a parameter",
         [&] { return SystemParametersInfoW(SPI_GETMOUSESPEED, 0, Bad<DWORD>(), 0) == FALSE ? 1u : 0u; }},
    });
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("KVX"), nullptr, 0), 0u);
    SetEnvironmentVariableW(TEXT("KVCORE_FAULTY"), nullptr);
    SetEnvironmentVariableW(TEXT("KVCORE_FAULTS"), nullptr);
}
