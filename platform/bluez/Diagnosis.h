#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/bluez/BlueZPlatform.h"

namespace zobi::platform::bluez {

/// The result of one check of what the radio of this machine depends on.
struct Finding {
    /// How much a finding matters.
    enum class Severity : std::uint8_t {
        good,        ///< As it should be.
        limitation,  ///< Devices can be found, but something else cannot be done.
        obstacle     ///< No device can be found.
    };

    /// What was checked, for example "system bus".
    std::string subject;
    /// How much it matters.
    Severity severity;
    /// What was found, in whole sentences for people.
    std::string found;
    /// What a user can do about it, in whole sentences. Empty if there is nothing to do.
    std::string advice;
};

/// Checks what a program needs to use the radio of this machine, each thing before the things that depend on
/// it. When one does not work, the checks that depend on it are left out. Changes nothing.
///
/// Takes some milliseconds. If the bus or BlueZ does not answer, it waits up to 5 s for each of at most four
/// calls.
/// @throws std::system_error if the process has no descriptor left.
ZOBI_EXPORT std::vector<Finding> diagnose(const BlueZOptions& options);

}  // namespace zobi::platform::bluez
