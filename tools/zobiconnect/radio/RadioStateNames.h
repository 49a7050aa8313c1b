#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace zobi::tool {

/// By the numbers of the states.
inline constexpr auto radioStateNames = std::to_array<std::string_view>(
    {"unknown", "resetting", "unsupported", "unauthorized", "poweredOff", "poweredOn"});

/// A radio may report a state that has no name.
constexpr std::string_view radioStateName(int state) {
    const auto index = static_cast<std::size_t>(state);
    return index < radioStateNames.size() ? radioStateNames[index] : "unnamed";
}

}  // namespace zobi::tool
