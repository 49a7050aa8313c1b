#pragma once

#include <string>

namespace zobi::platform::bluez {

/// What rate of advertisements to expect without advertisement monitors: whole sentences.
/// @param why there are none.
std::string limitedRateText(const std::string& why);

/// What a user can do about it: whole sentences.
std::string remedyForRate();

}  // namespace zobi::platform::bluez
