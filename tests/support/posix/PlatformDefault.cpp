#include <support/PlatformDefault.h>

#include <csignal>
#include <initializer_list>
#include <sys/resource.h>
#include <sys/wait.h>

namespace kv::test
{

void HaveThePlatformsDefault()
{
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
    {
        std::signal(fault, SIG_DFL);
    }
    rlimit const noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
}

bool EndedByBadPointer(int status)
{
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV;
}

} // namespace kv::test
