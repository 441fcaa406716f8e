#pragma once

#include <vector>

/// The list that functions of the interface append texts to.
template <typename Text>
using WinStringArray = std::vector<Text>;
