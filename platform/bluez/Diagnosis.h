#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/RadioCondition.h"
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

/// What the radio of this machine heard while it listened.
struct Hearing {
    /// What the figures amount to.
    enum class Verdict : std::uint8_t {
        fine,       ///< Devices are heard as often as they advertise.
        throttled,  ///< Each device is heard about once per scan of BlueZ: every 10 s.
        empty,      ///< The controller scans, and no device advertises.
        deaf,       ///< Nothing is heard, as the controller does not scan.
        unclear,    ///< Too little was heard to tell, or the controller cannot be seen.
        unusable    ///< The radio could not be used, or went away: `condition` tells why.
    };

    /// A device that was heard.
    struct Device {
        /// Its address, as in "00:00:5E:00:53:02".
        std::string address = {};
        /// The name that BlueZ knows; may be empty.
        std::string name = {};
        /// How often it was heard: BlueZ signals an advertisement and the answer to its scan as one.
        std::uint64_t advertisements = 0;
        /// From one to the next on average, in seconds; 0 if there was one.
        double meanGap = 0;
        /// The longest time without one, in seconds, from the beginning to the end of the listening.
        double longestGap = 0;
        /// The latest signal strength in dBm; nothing if the controller could not tell.
        std::optional<int> rssi = {};
    };

    /// A device that is linked to this machine.
    struct LinkedDevice {
        /// Its address.
        std::string address = {};
        /// The name that BlueZ knows; may be empty.
        std::string name = {};
    };

    /// For how long the radio listened, in seconds.
    double seconds = 0;
    /// Those that were heard, the one that was heard most often first.
    std::vector<Device> devices = {};
    /// Of all devices.
    std::uint64_t advertisements = 0;
    /// From the last of them, or from the beginning, to the end, in seconds.
    double silence = 0;
    /// How often the controller began or ended a scan, for whatever program. Nothing if that cannot be seen.
    std::optional<unsigned> scanSwitches = {};
    /// The same within the silence.
    std::optional<unsigned> scanSwitchesInSilence = {};
    /// Those that are linked at the end and were not heard.
    std::vector<LinkedDevice> linked = {};
    /// Of the radio, at the end.
    RadioCondition condition = {};
    /// What all this amounts to.
    Verdict verdict = Verdict::unusable;
    /// The same for people, with advice: one finding on "air", and one for each linked device.
    std::vector<Finding> findings = {};
};

/// Scans for all devices as a program does, and tells what is heard. To tell deaf from empty, and how often
/// devices are heard, takes 12 s or more; 30 s are better.
///
/// Runs the platform's loop for so many seconds, or until somebody stops it; if the radio cannot be used, for
/// at most 10 s. Not from inside a callback of the loop.
ZOBI_EXPORT Hearing listen(BlueZPlatform& platform, double seconds);

}  // namespace zobi::platform::bluez
