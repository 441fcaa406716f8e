// Damaged stores of the registry: of any bytes, with some bytes changed, or changed by statements. Every call ends in a
// published code; damage is told once, by the call that meets it, and the store that comes next serves.

#include <vector>

#include <kvcore/platform/win32.h>

#include "Fuzz.h"
#include "StoreFile.h"

namespace
{

std::string MakeHealthyStore(fuzz::DataDirectory const & data)
{
    HKEY key = nullptr;
    RegCreateKeyExW(
        HKEY_CURRENT_USER, TEXT("Software\\Fuzz\\Below"), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    BYTE const bytes[] = {'a', 0, 'b', 0, 0, 0};
    RegSetValueExW(key, TEXT("text"), 0, REG_SZ, bytes, sizeof bytes);
    RegSetValueExW(key, nullptr, 0, REG_BINARY, bytes, 3);
    fuzz::Check(RegFlushKey(key) == ERROR_SUCCESS, "the healthy store cannot be written");
    RegCloseKey(key);
    return fuzz::ReadWhole(data.File("registry.db"));
}

bool IsPublished(LSTATUS status)
{
    switch (status)
    {
    case ERROR_SUCCESS:
    case ERROR_FILE_NOT_FOUND:
    case ERROR_KEY_DELETED:
    case ERROR_BADDB:
    case ERROR_OLD_WIN_VERSION:
    case ERROR_CANTOPEN:
    case ERROR_ACCESS_DENIED:
    case ERROR_NO_MORE_ITEMS:
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_CHILD_MUST_BE_VOLATILE:
    case ERROR_REGISTRY_IO_FAILED:
        return true;
    default:
        return false;
    }
}

/// Goes through the store and notes what it says.
class Walk
{
public:
    Walk()
    {
        Visit(HKEY_USERS, 0);
        Visit(HKEY_LOCAL_MACHINE, 0);
    }
    LSTATUS First() const
    {
        return first;
    }

private:
    bool Note(LSTATUS status)
    {
        fuzz::Check(IsPublished(status), "a call gives a code that is not published");
        fuzz::Check(++calls < 100'000, "a walk does not end");
        bool const isEnd = status == ERROR_SUCCESS || status == ERROR_NO_MORE_ITEMS;
        first = isEnd || first != ERROR_SUCCESS ? first : status;
        return status == ERROR_SUCCESS;
    }
    void Visit(HKEY key, int depth)
    {
        fuzz::Check(depth < 200, "a walk goes down for ever");
        VisitValues(key);
        for (DWORD index = 0; first == ERROR_SUCCESS; ++index)
        {
            WCHAR name[300];
            DWORD size = 300;
            if (!Note(RegEnumKeyExW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr)))
            {
                return;
            }
            HKEY below = nullptr;
            if (Note(RegOpenKeyExW(key, name, 0, KEY_READ, &below)))
            {
                Visit(below, depth + 1);
                RegCloseKey(below);
            }
        }
    }
    void VisitValues(HKEY key)
    {
        std::vector<WCHAR> name(16'384);
        for (DWORD index = 0; first == ERROR_SUCCESS; ++index)
        {
            DWORD size = static_cast<DWORD>(name.size());
            DWORD room = 0;
            if (!Note(RegEnumValueW(key, index, name.data(), &size, nullptr, nullptr, nullptr, &room)))
            {
                return;
            }
            fuzz::Check(room < 64u << 20, "data that nothing backs");
            fuzz::Exact<BYTE> const data(room);
            Note(RegQueryValueExW(key, name.data(), nullptr, nullptr, data.Data(), &room));
        }
    }

    LSTATUS first = ERROR_SUCCESS;
    int calls = 0;
};

LSTATUS Change()
{
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(
        HKEY_CURRENT_USER, TEXT("Software\\Fuzz\\New"), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS)
    {
        return status;
    }
    BYTE const byte = 1;
    status = RegSetValueExW(key, TEXT("v"), 0, REG_BINARY, &byte, 1);
    RegCloseKey(key);
    return status == ERROR_SUCCESS ? static_cast<LSTATUS>(SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Software\\Fuzz")))
                                   : status;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    static fuzz::DataDirectory const directory;
    static fuzz::DamagedStore store(directory.File("registry.db"), MakeHealthyStore(directory));
    store.Make(std::string(reinterpret_cast<char const *>(data), size));
    int damages = 0;
    LSTATUS last = ERROR_SUCCESS;
    for (int round = 0; round < 3; ++round)
    {
        last = Walk().First();
        last = last == ERROR_SUCCESS ? Change() : last;
        fuzz::Check(IsPublished(last), "a change gives a code that is not published");
        damages += last == ERROR_BADDB ? 1 : 0;
    }
    fuzz::Check(damages <= 1 && last != ERROR_BADDB, "damage is told more than once");
    fuzz::Check(store.TakeAside() <= 1, "more than the damaged store was set aside");
    return 0;
}
