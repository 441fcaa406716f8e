// The library's table of imported functions gets the test's own in place of the system's.

#include <support/SystemCalls.h>

#include <type_traits>

#include <support/ReplacedCalls.h>
#include <support/windows/Imports.h>

namespace
{

// The library calls what it finds in its table as it would call the system's own: each has exactly that one's type.
#define KV_DEFINE_CALL(convention, result, name, parameters, arguments)                                                \
    result convention Own_##name parameters                                                                            \
    {                                                                                                                  \
        kv::test::SystemCalls const * const calls = kv::test::SystemCalls::Current();                                  \
        return calls != nullptr && calls->name ? calls->name arguments : ::name arguments;                             \
    }                                                                                                                  \
    static_assert(std::is_same_v<decltype(&Own_##name), decltype(&::name)>);
#define KV_DEFINE_RUNTIME_CALL(result, name, parameters, arguments)                                                    \
    KV_DEFINE_CALL(__cdecl, result, name, parameters, arguments)
#define KV_DEFINE_SYSTEM_CALL(result, name, parameters, arguments)                                                     \
    KV_DEFINE_CALL(WINAPI, result, name, parameters, arguments)
KV_REPLACEABLE_RUNTIME_CALLS(KV_DEFINE_RUNTIME_CALL)
KV_REPLACEABLE_SYSTEM_CALLS(KV_DEFINE_SYSTEM_CALL)
#undef KV_DEFINE_SYSTEM_CALL
#undef KV_DEFINE_RUNTIME_CALL
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
