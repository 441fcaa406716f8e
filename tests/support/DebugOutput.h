#pragma once

#include <string>
#include <vector>

/// Catches what this process tells its debugger, as long as it lives. One at a time.
class DebugOutput
{
public:
    DebugOutput();
    DebugOutput(DebugOutput const &) = delete;
    DebugOutput & operator=(DebugOutput const &) = delete;
    ~DebugOutput();

    std::vector<std::string> const & Texts() const;
};
