#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zobi::tool {

/// The bytes that `text` writes in hexadecimal digits of any case; ':', '-' and ' ' may stand between bytes.
/// @throws std::invalid_argument for anything else, with the reason as its message.
std::vector<std::uint8_t> bytesFromHex(std::string_view text);

/// The bytes in upper-case hexadecimal digits.
std::string hexText(std::span<const std::uint8_t> bytes);

}  // namespace zobi::tool
