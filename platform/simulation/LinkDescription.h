#pragma once

#include <optional>

#include "platform/NSError.h"

namespace platform::simulation {

/// How links to a simulated beacon are made, and how they fare.
struct LinkDescription {
    /// Seconds from the moment when a connection is asked for and the beacon is in range and free, to the
    /// link; not below 0.
    double connectionDelay = 0.2;
    /// What attempts fail with, after the same delay; absent for attempts that succeed.
    std::optional<NSError> connectionError = std::nullopt;
    /// Seconds out of range after which a link is lost, with `CBError::connectionTimeout`; above 0. A beacon
    /// that returns before answers what it was asked meanwhile.
    double supervisionTimeout = 2.0;
    /// Seconds that each request takes, one after the other; not below 0.
    double responseDelay = 0.03;
    /// What discoveries of services, and readings of the signal strength, are answered with.
    std::optional<NSError> serviceDiscoveryError = std::nullopt;
    std::optional<NSError> signalReadError = std::nullopt;
};

}  // namespace platform::simulation
