#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/zobiconnect/monitor/Sightings.h"
#include "tools/zobiconnect/radio/RadioOptions.h"

namespace zobi::tool {

/// The options of a command for one beacon.
struct BeaconOptions {
    BeaconIdentity identity{};
    /// What stands after the beacon, for a command that takes it.
    std::optional<std::uint8_t> value;
    double timeout = 30;
    /// Of a command that prints one result.
    std::string format = "text";
    RadioOptions radio;
};

/// Adds them to a command. The beacon is written as "1 7" or, as tables show it, "1.7".
/// @param options must outlive the command.
/// @param timeoutHelp what the timeout bounds.
/// @param valueHelp what the value after the beacon is; empty if the command takes none.
void addBeaconOptions(CLI::App& command, BeaconOptions& options, const std::string& timeoutHelp,
                      const std::string& valueHelp = "");

}  // namespace zobi::tool
