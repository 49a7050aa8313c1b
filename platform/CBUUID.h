#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// A Bluetooth UUID: a 128-bit value.
///
/// A 16-bit or 32-bit UUID is a short form of a 128-bit one on the Bluetooth Base UUID
/// (xxxxxxxx-0000-1000-8000-00805F9B34FB), and equals it.
class ZOBI_EXPORT CBUUID {
public:
    /// Parses a UUID of 4, 8 or 36 characters, such as "180A", "0000180A" or
    /// "0000180A-0000-1000-8000-00805F9B34FB", with upper or lower case digits. The compiler parses and
    /// checks a constant.
    /// @throws std::invalid_argument for any other text; the message contains the text.
    static constexpr CBUUID UUIDWithString(std::string_view text);

    /// The UUID in its shortest form, of 4, 8 or 36 characters, in upper case.
    std::string UUIDString() const;

    /// The assigned name of some common services and characteristics, "Device Information" for 180A;
    /// empty for any other UUID. The text has static storage; nothing is allocated.
    std::string_view description() const noexcept;

    /// Equal when all 128 bits are.
    friend bool operator==(const CBUUID&, const CBUUID&) = default;
    /// Orders as unsigned 128-bit numbers.
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

}  // namespace zobi::platform
