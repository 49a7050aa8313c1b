#include "tools/zobiconnect/text/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <locale>
#include <sstream>

namespace zobi::tool {

// By a stream, as std::from_chars reads no double in libc++ before version 20. A stream reads more than that
// does: a leading +, and in libc++ also hexadecimal digits and words.
std::optional<double> numberIn(std::string_view text, double smallest, double largest) {
    if (text.starts_with('+') || text.find_first_not_of("0123456789+-.eE") != std::string_view::npos) {
        return std::nullopt;
    }
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    double number = 0;
    stream >> number;
    const bool isNumber = stream && stream.peek() == std::istringstream::traits_type::eof() &&
                          number >= smallest && number <= largest;
    return isNumber ? std::optional(number) : std::nullopt;
}

std::string numberText(double number) {
    // As many digits as any number of a user's has, and no exponent up to that many.
    constexpr int precision = 15;
    std::array<char, 32> text{};
    char* const end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::general, precision)
            .ptr;
    return {text.data(), end};
}

std::string tenthsText(double number) {
    std::array<char, 320> text{};
    char* const end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 1).ptr;
    return {text.data(), end};
}

std::string secondsText(std::int64_t seconds) {
    return std::to_string(seconds) + 's';
}

std::string counted(std::uint64_t count, const std::string& noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string listed(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
    return list;
}

std::string signalText(platform::NSNumber rssi) {
    constexpr int weakest = -100;
    constexpr int stepPerSign = 11;
    constexpr int signs = 5;
    if (!rssi.hasValue()) return "-";
    const int full = std::clamp((rssi.integerValue() - weakest) / stepPerSign, 0, signs);
    return rssi.description() + ' ' + std::string(static_cast<std::size_t>(full), '#') +
           std::string(static_cast<std::size_t>(signs - full), '.');
}

std::string valueText(const platform::NSUserInfo::Value& value) {
    if (const auto* const text = std::get_if<std::string>(&value)) return *text;
    return std::get<platform::NSNumber>(value).description();
}

std::string errorText(const platform::NSError& error) {
    return error.localizedDescription() + " (" + error.domain() + ' ' + std::to_string(error.code()) + ')';
}

std::int64_t age(double now, double moment) {
    return std::max<std::int64_t>(0, static_cast<std::int64_t>(now) - static_cast<std::int64_t>(moment));
}

}  // namespace zobi::tool
