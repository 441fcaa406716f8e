// Damaged stores of system parameters: of any bytes, with some bytes changed, or changed by statements. Reading always
// gives a value, and what is written is there, unless the store is a newer version's.

#include <kvcore/platform/win32.h>

#include "Fuzz.h"
#include "StoreFile.h"

namespace
{

DWORD Get()
{
    DWORD value = 0xCCCCCCCC;
    fuzz::Check(SystemParametersInfoW(SPI_GETSCREENSAVETIMEOUT, 0, &value, 0) != FALSE, "a parameter cannot be read");
    return value;
}

/// 0, or the code of the failure.
DWORD Set(DWORD value, UINT flags)
{
    SetLastError(ERROR_SUCCESS);
    return SystemParametersInfoW(SPI_SETSCREENSAVETIMEOUT, value, nullptr, flags) != FALSE ? ERROR_SUCCESS
                                                                                           : GetLastError();
}

std::string MakeHealthyStore(fuzz::DataDirectory const & data)
{
    fuzz::Check(Set(600, SPIF_UPDATEINIFILE) == ERROR_SUCCESS, "the healthy store cannot be written");
    return fuzz::ReadWhole(data.File("parameters.db"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    static fuzz::DataDirectory const directory;
    static fuzz::DamagedStore store(directory.File("parameters.db"), MakeHealthyStore(directory));
    store.Make(std::string(reinterpret_cast<char const *>(data), size));
    Get();
    for (UINT const flags : {SPIF_UPDATEINIFILE, 0u})
    {
        DWORD const result = Set(77 + flags, flags);
        bool const isRefused = result == ERROR_OLD_WIN_VERSION || result == ERROR_ACCESS_DENIED ||
            result == ERROR_WRITE_FAULT || result == ERROR_NOT_ENOUGH_MEMORY;
        fuzz::Check(result == ERROR_SUCCESS || isRefused, "a write gives a code that is not published");
        fuzz::Check(isRefused || Get() == 77 + flags, "a value that was written is not there");
    }
    fuzz::Check(store.TakeAside() <= 1, "more than the damaged store was set aside");
    return 0;
}
