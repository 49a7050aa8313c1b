#pragma once

#include <string>
#include <string_view>

#include "zobi/platform/CBUUID.h"

namespace zobi::tool {

/// The standard name of a service or characteristic, or what it is to beacons; empty for any other.
std::string_view gattName(const platform::CBUUID& uuid);

/// As in "temperature (FFF2)".
std::string gattText(const platform::CBUUID& uuid);

}  // namespace zobi::tool
