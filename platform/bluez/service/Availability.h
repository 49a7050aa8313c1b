#pragma once

#include <cstdint>
#include <string>

#include "zobi/platform/CBCentralManager.h"

namespace zobi::platform::bluez {

/// Whether Bluetooth can be used here, and if not, what is in the way.
enum class Availability : std::uint8_t {
    /// Not known yet.
    starting,
    noBus,
    noService,
    /// The policy of the bus refuses this user.
    refused,
    noAdapter,
    poweredOff,
    /// Powered off by a switch of the machine, or by its software counterpart.
    blocked,
    poweredOn,
    /// The service was there and is gone, or is being asked anew.
    restarting,
};

/// How an application is told.
CBManagerState stateOf(Availability availability);

/// What is in the way: a whole sentence. Empty while nothing is.
/// @param adapter which adapter is asked for; empty for any.
std::string troubleOf(Availability availability, const std::string& adapter);

/// What a user can do about it: a whole sentence. Empty while nothing is in the way.
/// @param adapter which adapter is asked for; empty for any.
std::string remedyFor(Availability availability, const std::string& adapter);

/// Both, one after the other.
std::string adviceFor(Availability availability, const std::string& adapter);

}  // namespace zobi::platform::bluez
