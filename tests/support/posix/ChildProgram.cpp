#include <support/ChildProgram.h>

#include <filesystem>
#include <stdexcept>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

int RunChildProgram(std::string const & name, std::vector<std::string> const & arguments)
{
    std::string const program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
    std::vector<char *> argv{const_cast<char *>(program.c_str())};
    for (std::string const & argument : arguments)
    {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child;
    int status;
    if (posix_spawn(&child, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child)
    {
        throw std::runtime_error("cannot run " + program);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
