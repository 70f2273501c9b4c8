// The shared names with their values as 32-bit patterns, one list per side.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using NamedValues = std::vector<std::pair<std::string, std::uint32_t>>;

// As the Windows headers define them (shared_names_windows.cpp).
NamedValues windows_values();
