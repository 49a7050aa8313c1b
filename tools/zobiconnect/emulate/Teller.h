#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace zobi::tool {

/// Told what happens to an emulated beacon: an event and its values for programs, a line for people.
using Teller = std::function<void(std::string_view event, const nlohmann::ordered_json& values,
                                  const std::string& line)>;

}  // namespace zobi::tool
