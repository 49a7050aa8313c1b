#pragma once

#include <string>

#include "Air.h"

namespace air {

/// Carries out one line of the kind that README.md lists under "The air". Gives the answer: "ok", with a text
/// or without, or "error" and what is wrong with the line.
std::string carryOut(const std::string& line, Air& air);

}  // namespace air
