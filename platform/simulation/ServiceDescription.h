#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSError.h"
#include "zobi/platform/simulation/GeneratedValue.h"

namespace zobi::platform::simulation {

/// The properties of a characteristic. Any other request is refused, with the error code of a real device.
struct CharacteristicProperties {
    bool read = false;                  ///< It can be read.
    bool write = false;                 ///< It can be written with response.
    bool writeWithoutResponse = false;  ///< It can be written without response.
    bool notify = false;                ///< A central can subscribe to it.
};

/// A characteristic of a simulated device. It cannot be made without its UUID.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
struct CharacteristicDescription {
    /// Its type.
    CBUUID uuid;
    /// What a central may do with it.
    CharacteristicProperties properties = {};
    /// Its value, up to `maximumValueSize` bytes; absent for an empty one.
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

/// A service of a simulated device.
struct ServiceDescription {
    /// Its type.
    CBUUID uuid;
    /// Its characteristics, in the order in which a central discovers them.
    std::vector<CharacteristicDescription> characteristics = {};
    /// The error with which discoveries of its characteristics are answered.
    std::optional<NSError> discoveryError = std::nullopt;
};

}  // namespace zobi::platform::simulation
