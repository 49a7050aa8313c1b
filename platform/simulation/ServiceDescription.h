#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/CBUUID.h"
#include "platform/Export.h"
#include "platform/NSError.h"
#include "platform/simulation/GeneratedValue.h"

namespace platform::simulation {

/// What a characteristic allows. Anything else is refused, with the code that a real one answers.
struct CharacteristicProperties {
    bool read = false;
    bool write = false;
    bool writeWithoutResponse = false;
    bool notify = false;
};

/// A characteristic of a simulated beacon. It cannot be made without its UUID.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct CharacteristicDescription {
    CBUUID uuid;
    CharacteristicProperties properties = {};
    /// Up to 512 bytes. Absent for what the beacon itself knows: its battery level in 2A19, its temperature
    /// in FFF2 (two bytes, big-endian), the code of its button in FFE1; nothing in any other.
    std::optional<std::vector<std::uint8_t>> value = std::nullopt;
    /// A shorter value that is written gets zero bytes in front, up to so many bytes in all.
    std::size_t width = 0;
    std::optional<GeneratedValue> generated = std::nullopt;
    /// What reads, writes with response, and switches of the notifications are answered with.
    std::optional<NSError> readError = std::nullopt;
    std::optional<NSError> writeError = std::nullopt;
    std::optional<NSError> notifyError = std::nullopt;
};

/// A service of a simulated beacon.
struct ServiceDescription {
    CBUUID uuid;
    std::vector<CharacteristicDescription> characteristics = {};
    /// What discoveries of its characteristics are answered with.
    std::optional<NSError> discoveryError = std::nullopt;
};

/// The seven services of a beacon, whole and in good order. Its button mode is 0, its firmware "1.0.0".
ZOK_EXPORT std::vector<ServiceDescription> beaconServices();

}  // namespace platform::simulation
