#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

/// The bytes that are written in hexadecimal, with a space after each.
inline std::vector<std::uint8_t> bytesOfHex(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::uint8_t> bytes;
    for (unsigned byte = 0; stream >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}
