#pragma once

#include <cstdint>
#include <vector>

#include "platform/Export.h"
#include "platform/simulation/BeaconDescription.h"

namespace platform::simulation {

/// The payload that a beacon so described sends: 16 bytes in layout version 3, 14 in version 2, 11 in
/// version 1, 13 in any other.
/// @throws std::invalid_argument for a temperature that no payload can carry, whatever the layout.
ZOK_EXPORT std::vector<std::uint8_t> encodePayload(const BeaconDescription& beacon);

}  // namespace platform::simulation
