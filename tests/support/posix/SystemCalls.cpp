// The test's own functions of the system's names come before those of the platform library: the dynamic linker takes
// the first it meets.

#include <support/SystemCalls.h>

#include <dlfcn.h>

#include <kvcore/platform/WriteBehind.h>
#include <support/ReplacedCalls.h>

extern "C"
{
#define KV_DEFINE_CALL(result, name, parameters, arguments)                                                            \
    __attribute__((visibility("default"))) result name parameters                                                      \
    {                                                                                                                  \
        kv::test::SystemCalls const * const calls = kv::test::SystemCalls::Current();                                  \
        return calls != nullptr && calls->name ? calls->name arguments : kv::test::SystemCalls::Real##name arguments;  \
    }
    KV_REPLACEABLE_CALLS(KV_DEFINE_CALL)
#undef KV_DEFINE_CALL
}

// Who replaces WriteFile is to see every write: none goes behind.
__attribute__((visibility("default"))) bool
kv::platform::WritesBehind::Write(void const * data, DWORD count, std::uint64_t place) noexcept
{
    using Method = bool (*)(WritesBehind *, void const *, DWORD, std::uint64_t);
    static auto const real = reinterpret_cast<Method>(dlsym(RTLD_NEXT, "_ZN2kv8platform12WritesBehind5WriteEPKvjm"));
    kv::test::SystemCalls const * const calls = kv::test::SystemCalls::Current();
    bool const isReplaced = calls != nullptr && calls->WriteFile;
    return !isReplaced && real(this, data, count, place);
}

namespace kv::test
{

#define KV_DEFINE_CALL(result, name, parameters, arguments)                                                            \
    result SystemCalls::Real##name parameters                                                                          \
    {                                                                                                                  \
        static auto * const real = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name));                    \
        return real arguments;                                                                                         \
    }
KV_REPLACEABLE_CALLS(KV_DEFINE_CALL)
#undef KV_DEFINE_CALL

void InstallReplacedCalls()
{
    // They stand in their places from the start.
}

} // namespace kv::test
