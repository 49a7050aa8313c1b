#include "platform/standard/StandardLog.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>
#include <utility>

namespace platform {

namespace {

/// As in 2024-01-31T12:00:00.250Z.
std::string timeStamp(double secondsSince1970) {
    const double whole = std::floor(secondsSince1970);
    const auto seconds = static_cast<std::time_t>(whole);
    const auto milliseconds = static_cast<int>((secondsSince1970 - whole) * 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, sizeof "2024-01-31T12:00:00"> dateAndTime{};
    const std::size_t length = std::strftime(dateAndTime.data(), dateAndTime.size(), "%FT%T", &utc);
    const std::string thousands = std::to_string(1000 + milliseconds).substr(1);
    return std::string(dateAndTime.data(), length) + '.' + thousands + 'Z';
}

void appendPrintable(std::string& entry, std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            entry += c;
        } else {
            entry += "\\x";
            entry += digits[byte >> 4];
            entry += digits[byte & 0xF];
        }
    }
}

}  // namespace

StandardLog::Sink StandardLog::stderrSink(const Clock& clock) {
    return [&clock](std::string_view line) {
        std::string entry = timeStamp(clock.timeIntervalSince1970()) + ' ';
        appendPrintable(entry, line);
        entry += '\n';
        // One call, so that entries of several processes do not mix.
        std::fwrite(entry.data(), 1, entry.size(), stderr);
    };
}

StandardLog::StandardLog(Sink sink) : sink_(std::move(sink)) {}

void StandardLog::setSink(Sink sink) {
    sink_ = std::move(sink);
}

bool StandardLog::isEnabled() const {
    return sink_ != nullptr;
}

void StandardLog::writeLine(std::string_view line) {
    // Copied, for a sink may set another.
    const Sink sink = sink_;
    sink(line);
}

}  // namespace platform
