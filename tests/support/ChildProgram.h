#pragma once

#include <string>
#include <vector>

/// Runs a program that lies beside the test's own, named without its ending, and waits for it. Its exit code; anything
/// but 0 to 255 stands for an end by a fault.
int RunChildProgram(std::string const & name, std::vector<std::string> const & arguments);
