// The library's table of imported functions gets the test's own in place of the system's.

#include <support/SystemCalls.h>

#include <support/ReplacedCalls.h>
#include <support/windows/Imports.h>

namespace
{

// No name of the list is declared here with a calling convention of its own: on this processor there is but one.
#define KV_DEFINE_CALL(result, name, parameters, arguments)                                                            \
    result WINAPI Own_##name parameters                                                                                \
    {                                                                                                                  \
        kv::test::SystemCalls const * const calls = kv::test::SystemCalls::Current();                                  \
        return calls != nullptr && calls->name ? calls->name arguments : ::name arguments;                             \
    }
KV_REPLACEABLE_CALLS(KV_DEFINE_CALL)
#undef KV_DEFINE_CALL

} // namespace

namespace kv::test
{

#define KV_DEFINE_CALL(result, name, parameters, arguments)                                                            \
    result SystemCalls::Real##name parameters                                                                          \
    {                                                                                                                  \
        return ::name arguments;                                                                                       \
    }
KV_REPLACEABLE_CALLS(KV_DEFINE_CALL)
#undef KV_DEFINE_CALL

void InstallReplacedCalls()
{
    static ReplacedImport const imports[] = {
#define KV_LIST_CALL(result, name, parameters, arguments) {#name, reinterpret_cast<void *>(&Own_##name)},
        KV_REPLACEABLE_CALLS(KV_LIST_CALL)
#undef KV_LIST_CALL
    };
    ReplaceImports(imports);
}

} // namespace kv::test
