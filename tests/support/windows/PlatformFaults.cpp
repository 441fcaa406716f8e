// The library's table of imported functions gets the test's own in place of the system's.

#define FAULTY_CALL(name) Faulty##name
#define REAL_CALL(name) ::name

#include <support/PlatformFaultCalls.h>
#include <support/windows/Imports.h>

namespace kv::test
{

namespace
{

#define CALL(name)                                                                                                     \
    {                                                                                                                  \
#        name, reinterpret_cast < void *>(&Faulty##name)                                                               \
    }

ReplacedImport const calls[] = {
    CALL(CreateFileW),      CALL(CreateFileMappingW), CALL(CloseHandle), CALL(MapViewOfFile), CALL(GetFileSize),
    CALL(ReadFile),         CALL(WriteFile),          CALL(ReadFileEx),  CALL(WriteFileEx),   CALL(SetFilePointerEx),
    CALL(FlushFileBuffers), CALL(LockFile),           CALL(UnlockFile),  CALL(GetFileTime),   CALL(SetFileTime),
};

#undef CALL

} // namespace

void InstallPlatformFaults()
{
    ReplaceImports(calls);
}

} // namespace kv::test
