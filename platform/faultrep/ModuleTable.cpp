#include "ModuleTable.h"

#include <cstring>

#include "ProcFiles.h"

namespace kv::platform
{

namespace
{

bool ReadHex(char const *& text, std::uint64_t & value)
{
    char const * const begin = text;
    value = 0;
    for (;; ++text)
    {
        char const c = *text;
        int const digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0)
        {
            return text != begin;
        }
        value = value << 4 | static_cast<unsigned>(digit);
    }
}

char const * SkipFields(char const * text, int fields)
{
    for (; fields > 0 && *text != 0; --fields)
    {
        while (*text != 0 && *text != ' ')
        {
            ++text;
        }
        while (*text == ' ')
        {
            ++text;
        }
    }
    return text;
}

} // namespace

void ModuleTable::Fill(char const * list)
{
    count = 0;
    leftOut = 0;
    LineReader lines(list);
    while (char const * const line = lines.Next())
    {
        Add(line);
    }
    // A file of data has no code.
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (modules[i].path[sizeof modules[i].path - 1] != 0)
        {
            modules[i].path[sizeof modules[i].path - 1] = 0;
            if (kept != i)
            {
                modules[kept] = modules[i];
            }
            ++kept;
        }
    }
    count = kept;
}

// "low-high rights offset device number path": the lines of a module follow each other. That there was code is noted in
// the path's last byte until all lines are there.
void ModuleTable::Add(char const * line)
{
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    char const * text = line;
    if (!ReadHex(text, low) || *text++ != '-' || !ReadHex(text, high) || *text++ != ' ' || std::strlen(text) < 4)
    {
        return;
    }
    bool const hasCode = text[2] == 'x';
    char const * const path = SkipFields(text, 4);
    if (*path != '/' && std::strcmp(path, "[vdso]") != 0)
    {
        return;
    }
    std::size_t const capacity = sizeof modules[0].path - 1;
    bool const continues = count > 0 && std::strncmp(modules[count - 1].path, path, capacity - 1) == 0;
    if (!continues && count == most)
    {
        leftOut += hasCode;
        return;
    }
    if (!continues)
    {
        LoadedModule & added = modules[count++];
        added.low = low;
        std::memset(added.path, 0, sizeof added.path);
        std::memcpy(added.path, path, std::strlen(path) < capacity ? std::strlen(path) : capacity - 1);
    }
    LoadedModule & module = modules[count - 1];
    module.high = high;
    if (hasCode)
    {
        module.path[capacity] = 1;
    }
}

LoadedModule const * ModuleTable::Find(std::uint64_t address) const
{
    for (std::size_t i = 0; i < count; ++i)
    {
        if (address >= modules[i].low && address < modules[i].high)
        {
            return &modules[i];
        }
    }
    return nullptr;
}

} // namespace kv::platform
