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

/// A platform over the radio of this machine, which is on.
/// @param adapter its name or address; empty for any.
/// @param log whether the library's log lines are printed.
/// @param patience how many seconds the radio has to tell its state; absent for as long as it takes.
/// @throws Failure when the radio cannot be used, or is not part of this tool.
std::unique_ptr<platform::Platform> makeMachineRadio(const std::string& adapter, bool log,
                                                     std::optional<double> patience);

}  // namespace zobi::tool
