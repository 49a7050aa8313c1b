#include "tools/zobiconnect/text/Hex.h"

#include <cstddef>
#include <optional>
#include <stdexcept>

namespace zobi::tool {

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

std::optional<unsigned> digitValue(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
    return std::nullopt;
}

}  // namespace

std::vector<std::uint8_t> bytesFromHex(std::string_view text) {
    constexpr std::string_view separators = ":- ";
    std::vector<std::uint8_t> bytes;
    std::optional<unsigned> firstDigit;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (separators.find(text[i]) != std::string_view::npos) {
            if (firstDigit) {
                throw std::invalid_argument("character " + std::to_string(i + 1) +
                                            " separates the two digits of a byte");
            }
            continue;
        }
        const auto digit = digitValue(text[i]);
        if (!digit) {
            throw std::invalid_argument("character " + std::to_string(i + 1) + " is not a hexadecimal digit");
        }
        if (firstDigit) {
            bytes.push_back(static_cast<std::uint8_t>(*firstDigit << 4 | *digit));
            firstDigit.reset();
        } else {
            firstDigit = *digit;
        }
    }
    if (firstDigit) throw std::invalid_argument("odd number of hexadecimal digits");
    return bytes;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

}  // namespace zobi::tool
