#include "zobi/platform/Log.h"

#include <array>
#include <charconv>
#include <limits>

namespace zobi::platform {

namespace {

constexpr int realDecimals = 6;
// The longest double in fixed notation: sign, 309 digits, point, decimals.
constexpr std::size_t longestReal = std::numeric_limits<double>::max_exponent10 + realDecimals + 3;

}  // namespace

void LogArgument::appendTo(std::string& line) const {
    switch (kind_) {
        case Kind::text:
            line += text_;
            break;
        case Kind::number:
            line += number_.description();
            break;
        case Kind::integer:
            line += std::to_string(integer_);
            break;
        case Kind::real: {
            std::array<char, longestReal + 1> digits{};
            const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), real_,
                                           std::chars_format::fixed, realDecimals)
                                 .ptr;
            line.append(digits.data(), end);
            break;
        }
    }
}

void Log::writeFormatted(Category category, std::string_view format,
                         std::initializer_list<LogArgument> arguments) {
    std::string line;
    for (const LogArgument& argument : arguments) {
        const std::size_t conversion = format.find('%');
        line += format.substr(0, conversion);
        if (conversion == std::string_view::npos) {
            format = {};
            break;
        }
        argument.appendTo(line);
        format.remove_prefix(format.find_first_of("@duf", conversion) + 1);
    }
    line += format;
    writeLine(category, line);
}

}  // namespace zobi::platform
