#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

namespace zobi::tool {

// Checks of what stands on the command line. CLI11 itself would wrap, clamp or round some of it in silence.

/// A finite number of seconds, `smallest` or more.
CLI::Validator isSeconds(double smallest = 0);

/// A whole number from 0 to `largest`.
CLI::Validator isNumberUpTo(std::uint64_t largest);

}  // namespace zobi::tool
