#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

#include "tools/zobiconnect/radio/RadioOptions.h"

namespace zobi::tool {

/// The options of a command for one beacon.
struct BeaconOptions {
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    double timeout = 30;
    RadioOptions radio;
};

/// Adds them to a command.
/// @param options must outlive the command.
/// @param timeoutHelp what the timeout bounds.
void addBeaconOptions(CLI::App& command, BeaconOptions& options, const std::string& timeoutHelp);

}  // namespace zobi::tool
