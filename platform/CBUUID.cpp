#include "platform/CBUUID.h"

#include <stdexcept>
#include <utility>

namespace platform {

namespace {

// A short UUID is the top 32 bits of a value that ends in the Bluetooth base UUID.
constexpr std::uint64_t baseHigh = 0x0000'0000'0000'1000;
constexpr std::uint64_t baseLow = 0x8000'0080'5F9B'34FB;
constexpr unsigned shortShift = 32;

constexpr std::size_t shortLength = 4;
constexpr std::size_t longShortLength = 8;
constexpr std::size_t fullLength = 36;

constexpr std::array<std::pair<std::uint64_t, std::string_view>, 6> standardNames{{
    {0x1802, "Immediate Alert"},
    {0x180A, "Device Information"},
    {0x180F, "Battery Service"},
    {0x2A06, "Alert Level"},
    {0x2A19, "Battery Level"},
    {0x2A26, "Firmware Revision String"},
}};

constexpr bool isHyphenPosition(std::size_t index) {
    return index == 8 || index == 13 || index == 18 || index == 23;
}

/// The value of a hexadecimal digit, or -1.
constexpr int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

void appendHex(std::string& text, std::uint64_t value, unsigned digits) {
    while (digits-- > 0) text += "0123456789ABCDEF"[(value >> (digits * 4)) & 0xF];
}

}  // namespace

CBUUID CBUUID::UUIDWithString(std::string_view text) {
    const bool isFull = text.size() == fullLength;
    bool isWellFormed = isFull || text.size() == shortLength || text.size() == longShortLength;
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    for (std::size_t i = 0; isWellFormed && i < text.size(); ++i) {
        if (isFull && isHyphenPosition(i)) {
            isWellFormed = text[i] == '-';
            continue;
        }
        const int digit = digitValue(text[i]);
        isWellFormed = digit >= 0;
        high = (high << 4) | (low >> 60);
        low = (low << 4) | static_cast<std::uint64_t>(digit & 0xF);
    }
    if (!isWellFormed) throw std::invalid_argument("not a UUID: \"" + std::string(text) + "\"");
    if (isFull) return {high, low};
    return {(low << shortShift) | baseHigh, baseLow};
}

std::string CBUUID::UUIDString() const {
    std::string text;
    const std::uint64_t shortValue = high_ >> shortShift;
    if (low_ == baseLow && (high_ & 0xFFFF'FFFF) == baseHigh) {
        appendHex(text, shortValue, shortValue <= 0xFFFF ? 4 : 8);
        return text;
    }
    appendHex(text, shortValue, 8);
    text += '-';
    appendHex(text, high_ >> 16, 4);
    text += '-';
    appendHex(text, high_, 4);
    text += '-';
    appendHex(text, low_ >> 48, 4);
    text += '-';
    appendHex(text, low_, 12);
    return text;
}

std::string_view CBUUID::description() const noexcept {
    if (low_ != baseLow || (high_ & 0xFFFF'FFFF) != baseHigh) return {};
    for (const auto& [shortValue, name] : standardNames) {
        if (shortValue == high_ >> shortShift) return name;
    }
    return {};
}

}  // namespace platform
