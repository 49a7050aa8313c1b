#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "zobi/platform/NSError.h"
#include "zobi/platform/NSNotificationCenter.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::tool {

/// The number that is the whole text, if it is one in these bounds.
std::optional<double> numberIn(std::string_view text, double smallest, double largest);
/// The same for integers, in decimal digits.
template <std::integral Number>
std::optional<Number> numberIn(std::string_view text, Number smallest, Number largest) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const bool isNumber = error == std::errc() && rest == end && number >= smallest && number <= largest;
    return isNumber ? std::optional(number) : std::nullopt;
}

/// The longest time that can be given: a billion seconds.
inline constexpr double longestTime = 1e9;

/// In decimal; a whole number without a fraction.
std::string numberText(double number);

/// With one digit after the point.
std::string tenthsText(double number);

/// As in "5s".
std::string secondsText(std::int64_t seconds);

/// As in "1 beacon" and "2 beacons".
std::string counted(std::uint64_t count, const std::string& noun);

/// With a comma between two.
std::string listed(const std::vector<std::string>& texts);

/// A signal strength in dBm, and five signs for what lies between a barely heard and a near beacon.
std::string signalText(platform::NSNumber rssi);

/// What a notification carries.
std::string valueText(const platform::NSUserInfo::Value& value);

/// As in "Bluetooth is off. (CBErrorDomain 5)".
std::string errorText(const platform::NSError& error);

/// How many seconds ago `moment` was; not below 0, for the wall clock may be set back.
std::int64_t age(double now, double moment);

}  // namespace zobi::tool
