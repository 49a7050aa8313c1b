#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/simulation/GeneratedValue.h"

namespace zobi::platform::simulation {

/// The properties of a characteristic. Any other request is refused, with the error code of a real beacon.
struct CharacteristicProperties {
    bool read = false;                  ///< It can be read.
    bool write = false;                 ///< It can be written with response.
    bool writeWithoutResponse = false;  ///< It can be written without response.
    bool notify = false;                ///< A central can subscribe to it.
};

/// A characteristic of a simulated beacon. It cannot be made without its UUID.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct CharacteristicDescription {
    /// Its type.
    CBUUID uuid;
    /// What a central may do with it.
    CharacteristicProperties properties = {};
    /// Its value, up to `maximumValueSize` bytes. Absent to take that of the beacon: its battery level in
    /// 2A19, its temperature in FFF2 (two bytes, big-endian), its button action in FFE1; empty in any other.
    std::optional<std::vector<std::uint8_t>> value = std::nullopt;
    /// The minimum number of bytes after a write: a shorter value gets zero bytes in front.
    std::size_t width = 0;
    /// Makes the value change while a central is connected; absent for a value that does not.
    std::optional<GeneratedValue> generated = std::nullopt;
    /// The error with which reads are answered.
    std::optional<NSError> readError = std::nullopt;
    /// The error with which writes with response are answered.
    std::optional<NSError> writeError = std::nullopt;
    /// The error with which requests to subscribe and unsubscribe are answered.
    std::optional<NSError> notifyError = std::nullopt;
};

/// A service of a simulated beacon.
struct ServiceDescription {
    /// Its type.
    CBUUID uuid;
    /// Its characteristics, in the order in which a central discovers them.
    std::vector<CharacteristicDescription> characteristics = {};
    /// The error with which discoveries of its characteristics are answered.
    std::optional<NSError> discoveryError = std::nullopt;
};

/// The seven services of a beacon with all their characteristics. The button mode is 0, the firmware revision
/// "1.0.0".
ZOBI_EXPORT std::vector<ServiceDescription> beaconServices();

}  // namespace zobi::platform::simulation
