// The library's table of imported functions gets the test's own in place of the system's.

#define FAULTY_CALL(name) Faulty##name
#define REAL_CALL(name) ::name

#include <type_traits>

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

// The library calls them as it would call the system's own.
#define SAME_TYPE(name) std::is_same_v<decltype(&Faulty##name), decltype(&::name)>
static_assert(SAME_TYPE(CreateFileW) && SAME_TYPE(CreateFileMappingW) && SAME_TYPE(CloseHandle));
static_assert(SAME_TYPE(MapViewOfFile) && SAME_TYPE(GetFileSize) && SAME_TYPE(ReadFile) && SAME_TYPE(WriteFile));
static_assert(SAME_TYPE(ReadFileEx) && SAME_TYPE(WriteFileEx) && SAME_TYPE(SetFilePointerEx));
static_assert(SAME_TYPE(FlushFileBuffers) && SAME_TYPE(LockFile) && SAME_TYPE(UnlockFile));
static_assert(SAME_TYPE(GetFileTime) && SAME_TYPE(SetFileTime));
#undef SAME_TYPE

} // namespace

void InstallPlatformFaults()
{
    ReplaceImports(calls);
}

} // namespace kv::test
