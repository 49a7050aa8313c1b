#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

namespace zobi::tool {

/// How a stream of events is shown.
enum class Display : std::uint8_t { jsonLines, liveTable, printedTables };

/// Adds --format to a command.
/// @param format must outlive the command.
void addDisplayOption(CLI::App& command, std::string& format);

/// @param logs whether log lines go to stderr.
Display chooseDisplay(const std::string& format, bool logs);

}  // namespace zobi::tool
