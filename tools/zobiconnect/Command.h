#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace zobi::tool {

/// A subcommand, and what it does once the command line is read.
struct Command {
    CLI::App* app;
    /// Gives the status that the process ends with.
    /// @throws CLI::ParseError for options that do not go together.
    std::function<int()> run;
};

Command addMonitorCommand(CLI::App& tool);
Command addInspectCommand(CLI::App& tool);
Command addWatchCommand(CLI::App& tool);
Command addPingCommand(CLI::App& tool);
Command addButtonModeCommand(CLI::App& tool);
/// Where the tool is built with the radio of this machine.
Command addEmulateCommand(CLI::App& tool);
Command addDecodeCommand(CLI::App& tool);
Command addDoctorCommand(CLI::App& tool);

}  // namespace zobi::tool
