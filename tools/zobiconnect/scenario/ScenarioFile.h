#pragma once

#include <string>
#include <string_view>

#include "ZobiConnectKit/simulation/Scenario.h"

namespace zobi::tool {

/// The scenario that `text` describes in JSON, as docs/scenarios.md has it.
/// @param fileName how messages name the text.
/// @throws UsageError for a mistake: the file's name, the line and column or the path, and the reason.
Scenario scenarioFromText(std::string_view text, const std::string& fileName);

/// How messages name a file.
std::string shownFileName(const std::string& fileName);

/// The scenario in a file.
/// @param fileName "-" for stdin.
/// @throws UsageError for a mistake in it, when it is larger than 16 MiB, and when it cannot be read.
Scenario scenarioFromFile(const std::string& fileName);

}  // namespace zobi::tool
