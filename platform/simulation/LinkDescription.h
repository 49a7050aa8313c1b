#pragma once

#include <optional>

#include "zobi/platform/NSError.h"

namespace zobi::platform::simulation {

/// Describes how attempts to connect to a simulated device end, and how its links behave.
struct LinkDescription {
    /// Seconds that an attempt takes once the device is in range and has no other link; not below 0.
    double connectionDelay = 0.2;
    /// The error with which attempts fail, after the same delay; absent for attempts that succeed.
    std::optional<NSError> connectionError = std::nullopt;
    /// Seconds out of range after which a link is lost, with `CBError::connectionTimeout`; above 0. A device
    /// that comes back earlier then answers the requests that it missed.
    double supervisionTimeout = 2.0;
    /// Seconds from a request to its answer; not below 0. There is one request at a time.
    double responseDelay = 0.03;
    /// The error with which discoveries of services are answered; absent to answer them with the services.
    std::optional<NSError> serviceDiscoveryError = std::nullopt;
    /// The error with which readings of the signal strength are answered; absent to answer them with a value.
    std::optional<NSError> signalReadError = std::nullopt;
};

}  // namespace zobi::platform::simulation
