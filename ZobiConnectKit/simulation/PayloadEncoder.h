#pragma once

#include <cstdint>
#include <vector>

#include "ZobiConnectKit/simulation/BeaconDescription.h"
#include "zobi/platform/Export.h"

namespace zobi {

/// The payload that a beacon so described sends: 16 bytes in layout version 3, 14 in version 2, 11 in
/// version 1, 13 in any other.
/// @throws std::invalid_argument for a temperature that no payload can carry, whatever the layout.
ZOBI_EXPORT std::vector<std::uint8_t> encodePayload(const BeaconDescription& beacon);

}  // namespace zobi
