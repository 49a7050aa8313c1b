#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Export.h"

namespace platform {

/// A Bluetooth UUID: a plain 128-bit value.
///
/// The 16-bit and 32-bit short forms stand for 128-bit values on the Bluetooth base UUID
/// (0000xxxx-0000-1000-8000-00805F9B34FB), so a UUID equals itself in whatever form it was written.
class ZOK_EXPORT CBUUID {
public:
    /// Parses 4, 8 or 36 characters ("180A", "0000180A", "0000180A-0000-1000-8000-00805F9B34FB"),
    /// hexadecimal digits in any case. A constant is parsed, and checked, by the compiler.
    /// @throws std::invalid_argument for any other text, with the text in its message.
    static constexpr CBUUID UUIDWithString(std::string_view text);

    /// The shortest form of 4, 8 or 36 characters, in upper case.
    std::string UUIDString() const;

    /// The standard name of the services and characteristics that beacons use ("Device Information" for
    /// 180A); empty for a UUID that has none. Refers to static storage and allocates nothing.
    std::string_view description() const noexcept;

    friend bool operator==(const CBUUID&, const CBUUID&) = default;
    friend auto operator<=>(const CBUUID&, const CBUUID&) = default;

private:
    // A short UUID is the top 32 bits of a value that ends in the Bluetooth base UUID.
    static constexpr std::uint64_t baseHigh = 0x0000'0000'0000'1000;
    static constexpr std::uint64_t baseLow = 0x8000'0080'5F9B'34FB;
    static constexpr unsigned shortShift = 32;

    constexpr CBUUID(std::uint64_t high, std::uint64_t low) : high_(high), low_(low) {}

    /// The value of a hexadecimal digit, or -1.
    static constexpr int digitValue(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    }

    [[noreturn]] static void refuse(std::string_view text);

    bool isShort() const;

    std::uint64_t high_;
    std::uint64_t low_;
};

constexpr CBUUID CBUUID::UUIDWithString(std::string_view text) {
    const bool isFull = text.size() == 36;
    bool isWellFormed = isFull || text.size() == 4 || text.size() == 8;
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    for (std::size_t i = 0; isWellFormed && i < text.size(); ++i) {
        if (isFull && (i == 8 || i == 13 || i == 18 || i == 23)) {
            isWellFormed = text[i] == '-';
            continue;
        }
        const int digit = digitValue(text[i]);
        isWellFormed = digit >= 0;
        high = (high << 4) | (low >> 60);
        low = (low << 4) | static_cast<std::uint64_t>(digit & 0xF);
    }
    if (!isWellFormed) refuse(text);
    if (isFull) return {high, low};
    return {(low << shortShift) | baseHigh, baseLow};
}

}  // namespace platform
