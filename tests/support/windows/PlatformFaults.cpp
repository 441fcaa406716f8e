// The library's table of imported functions gets the test's own in place of the system's.

#include <cstring>

#define FAULTY_CALL(name) Faulty##name
#define REAL_CALL(name) ::name

#include <support/PlatformFaultCalls.h>

namespace kv::test
{

namespace
{

struct Call
{
    char const * name;
    void * own;
};

#define CALL(name)                                                                                                     \
    {                                                                                                                  \
#        name, reinterpret_cast < void *>(&Faulty##name)                                                               \
    }

Call const calls[] = {
    CALL(CreateFileW),      CALL(CreateFileMappingW), CALL(CloseHandle), CALL(MapViewOfFile), CALL(GetFileSize),
    CALL(ReadFile),         CALL(WriteFile),          CALL(ReadFileEx),  CALL(WriteFileEx),   CALL(SetFilePointerEx),
    CALL(FlushFileBuffers), CALL(LockFile),           CALL(UnlockFile),  CALL(GetFileTime),   CALL(SetFileTime),
};

#undef CALL

template <class T>
T * At(HMODULE module, DWORD offset)
{
    return reinterpret_cast<T *>(reinterpret_cast<char *>(module) + offset);
}

void Replace(HMODULE module, IMAGE_IMPORT_DESCRIPTOR const & imported)
{
    auto * names = At<IMAGE_THUNK_DATA>(module, imported.OriginalFirstThunk);
    auto * functions = At<IMAGE_THUNK_DATA>(module, imported.FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++functions)
    {
        if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
        {
            continue;
        }
        auto const * const byName = At<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData));
        for (Call const & call : calls)
        {
            if (std::strcmp(reinterpret_cast<char const *>(byName->Name), call.name) == 0)
            {
                DWORD before = 0;
                VirtualProtect(functions, sizeof(*functions), PAGE_READWRITE, &before);
                functions->u1.Function = reinterpret_cast<ULONG_PTR>(call.own);
                VirtualProtect(functions, sizeof(*functions), before, &before);
            }
        }
    }
}

} // namespace

void InstallPlatformFaults()
{
    HMODULE const module = GetModuleHandleW(L"libkvcore.dll");
    auto const * const dos = At<IMAGE_DOS_HEADER>(module, 0);
    auto const * const headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    IMAGE_DATA_DIRECTORY const & imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto const * next = At<IMAGE_IMPORT_DESCRIPTOR>(module, imports.VirtualAddress); next->Name != 0; ++next)
    {
        Replace(module, *next);
    }
}

} // namespace kv::test
