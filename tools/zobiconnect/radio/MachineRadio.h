#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zobi/platform/Platform.h"

namespace zobi::tool {

/// Whether the tool was built with the radio of this machine.
#ifdef ZOBI_BLUEZ
inline constexpr bool hasMachineRadio = true;
#else
inline constexpr bool hasMachineRadio = false;
#endif

/// A platform over the radio of this machine, which may be off or not there yet.
/// @param adapter its name or address; empty for any.
/// @param log whether the library's log lines are printed.
/// @throws Failure when the radio is not part of this tool.
std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& adapter, bool log);

/// Runs the platform's loop until the radio has told its state.
/// @param patience how many seconds it has for that; absent for as long as it takes.
/// @throws Failure unless it is on.
void expectPoweredOn(platform::Platform& platform, std::optional<double> patience);

}  // namespace zobi::tool
