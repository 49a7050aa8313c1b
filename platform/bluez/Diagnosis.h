#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/bluez/BlueZPlatform.h"

namespace platform::bluez {

/// Something that the radio of this machine depends on, and how it was found.
struct Finding {
    enum class Severity : std::uint8_t {
        good,
        /// Beacons can be monitored, but something else cannot be done.
        limitation,
        /// Beacons cannot be monitored.
        obstacle,
    };

    /// What was examined: "system bus", for example.
    std::string subject;
    Severity severity;
    /// For people: whole sentences.
    std::string found;
    /// What can be done about it: whole sentences. Empty if there is nothing to do.
    std::string advice;
};

/// Examines what stands between a program and the radio of this machine, in the order in which one thing
/// needs the other: what can only be examined when another thing works is left out when that does not.
/// Changes nothing. Takes some milliseconds; where the bus or the service hangs, up to 5 s for each question,
/// of which there are four at most.
/// @throws std::system_error when the process has no descriptor left.
ZOK_EXPORT std::vector<Finding> diagnose(const BlueZOptions& options);

}  // namespace platform::bluez
