#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The bytes that are written in hexadecimal, with a space after each.
std::vector<std::uint8_t> bytesOfHex(const std::string& text);
