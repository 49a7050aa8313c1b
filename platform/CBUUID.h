#pragma once

#include <array>
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
    /// hexadecimal digits in any case.
    /// @throws std::invalid_argument for any other text, with the text in its message.
    static CBUUID UUIDWithString(std::string_view text);

    /// The shortest form of 4, 8 or 36 characters, in upper case.
    std::string UUIDString() const;

    /// The standard name of the services and characteristics that beacons use ("Device Information" for
    /// 180A); empty for a UUID that has none. Refers to static storage and allocates nothing.
    std::string_view description() const noexcept;

    friend bool operator==(const CBUUID&, const CBUUID&) = default;
    friend auto operator<=>(const CBUUID&, const CBUUID&) = default;

private:
    constexpr CBUUID(std::uint64_t high, std::uint64_t low) : high_(high), low_(low) {}

    std::uint64_t high_;
    std::uint64_t low_;
};

}  // namespace platform
