#include "tools/zobiconnect/options/OptionChecks.h"

#include <charconv>
#include <cmath>
#include <optional>
#include <string>

#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

namespace {

/// The number that is the whole text, if it is one.
template <typename Number>
std::optional<Number> numberFromText(const std::string& text) {
    const char* const end = text.data() + text.size();
    Number number{};
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

}  // namespace

CLI::Validator isSeconds(double smallest) {
    const auto check = [smallest](const std::string& text) -> std::string {
        const auto seconds = numberFromText<double>(text);
        if (seconds && *seconds >= smallest && std::isfinite(*seconds)) return "";
        return '"' + text + "\" is not a number of seconds, " + numberText(smallest) + " or more";
    };
    return {check, "", "seconds"};
}

CLI::Validator isNumberUpTo(std::uint64_t largest) {
    const auto check = [largest](const std::string& text) -> std::string {
        const auto number = numberFromText<std::uint64_t>(text);
        if (number && *number <= largest) return "";
        return '"' + text + "\" is not a number from 0 to " + std::to_string(largest);
    };
    return {check, "", "number"};
}

}  // namespace zobi::tool
