// A library that says so when its code runs: it leaves a file in the current directory. Tests put it under names that
// others look for.

#include <cstdio>

namespace
{

[[gnu::constructor]] void LeaveMark()
{
    if (std::FILE * const mark = std::fopen("planted-code-ran", "wb"))
    {
        std::fclose(mark);
    }
}

} // namespace
