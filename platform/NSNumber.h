#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

namespace platform {

/// A boxed number: nothing, or an integer that remembers the kind it was made from.
///
/// A plain value, 8 bytes, safe to copy and to read from any thread that owns it. Nothing reads as 0
/// and prints as "(null)".
class NSNumber {
public:
    enum class Kind : std::uint8_t { none, int32, uint8, uint16 };

    /// Holds nothing.
    constexpr NSNumber() = default;

    /// From a signed 32-bit integer.
    static constexpr NSNumber numberWithInt(std::int32_t value) { return {Kind::int32, value}; }
    /// From an unsigned 8-bit integer.
    static constexpr NSNumber numberWithUnsignedChar(std::uint8_t value) { return {Kind::uint8, value}; }
    /// From an unsigned 16-bit integer.
    static constexpr NSNumber numberWithUnsignedShort(std::uint16_t value) { return {Kind::uint16, value}; }

    constexpr Kind kind() const { return kind_; }
    constexpr bool hasValue() const { return kind_ != Kind::none; }

    /// The value, which fits 32 signed bits whatever the kind; 0 for nothing.
    constexpr std::int32_t integerValue() const { return value_; }
    /// The low 8 bits of the value, read as a signed number (200 gives -56); 0 for nothing.
    constexpr std::int8_t charValue() const { return static_cast<std::int8_t>(value_); }

    /// The value in decimal, or "(null)".
    ZOK_EXPORT std::string description() const;

    /// Equal when both the kind and the value are.
    friend constexpr bool operator==(const NSNumber&, const NSNumber&) = default;

private:
    constexpr NSNumber(Kind kind, std::int32_t value) : value_(value), kind_(kind) {}

    std::int32_t value_ = 0;
    Kind kind_ = Kind::none;
};

}  // namespace platform
