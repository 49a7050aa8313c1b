#pragma once

#include <cstdint>
#include <string>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// An optional integer that knows the type from which it was made. A value type of 8 bytes.
class NSNumber {
public:
    /// The type from which a number was made.
    enum class Kind : std::uint8_t {
        none,   ///< Without a value.
        int32,  ///< Signed 32-bit integer.
        uint8,  ///< Unsigned 8-bit integer.
        uint16  ///< Unsigned 16-bit integer.
    };

    /// A number without a value.
    constexpr NSNumber() = default;

    /// From a signed 32-bit integer.
    static constexpr NSNumber numberWithInt(std::int32_t value) { return {Kind::int32, value}; }
    /// From an unsigned 8-bit integer.
    static constexpr NSNumber numberWithUnsignedChar(std::uint8_t value) { return {Kind::uint8, value}; }
    /// From an unsigned 16-bit integer.
    static constexpr NSNumber numberWithUnsignedShort(std::uint16_t value) { return {Kind::uint16, value}; }

    /// The type from which the number was made.
    constexpr Kind kind() const { return kind_; }
    /// False for a number without a value.
    constexpr bool hasValue() const { return kind_ != Kind::none; }

    /// The value; 0 without one.
    constexpr std::int32_t integerValue() const { return value_; }
    /// The low 8 bits of the value as a signed number (200 gives -56); 0 without a value.
    constexpr std::int8_t charValue() const { return static_cast<std::int8_t>(value_); }

    /// The value in decimal; "(null)" without one.
    ZOBI_EXPORT std::string description() const;

    /// Equal when both kind and value are.
    friend constexpr bool operator==(const NSNumber&, const NSNumber&) = default;

private:
    constexpr NSNumber(Kind kind, std::int32_t value) : value_(value), kind_(kind) {}

    std::int32_t value_ = 0;
    Kind kind_ = Kind::none;
};

}  // namespace zobi::platform
