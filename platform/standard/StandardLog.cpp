#include "zobi/platform/standard/StandardLog.h"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <utility>

namespace zobi::platform {

namespace {

void appendPadded(std::string& text, unsigned value, std::size_t width) {
    const std::string digits = std::to_string(value);
    if (digits.size() < width) text.append(width - digits.size(), '0');
    text += digits;
}

/// As in 2024-01-31T12:00:00.250Z.
std::string timeStamp(double secondsSince1970) {
    using namespace std::chrono;
    const auto time = floor<milliseconds>(duration<double>(secondsSince1970));
    const auto day = floor<days>(time);
    const year_month_day date{sys_days(day)};
    const hh_mm_ss timeOfDay(time - day);
    std::string text = std::to_string(static_cast<int>(date.year()));
    const auto append = [&text](char separator, auto value, std::size_t width) {
        text += separator;
        appendPadded(text, static_cast<unsigned>(value), width);
    };
    append('-', unsigned{date.month()}, 2);
    append('-', unsigned{date.day()}, 2);
    append('T', timeOfDay.hours().count(), 2);
    append(':', timeOfDay.minutes().count(), 2);
    append(':', timeOfDay.seconds().count(), 2);
    append('.', timeOfDay.subseconds().count(), 3);
    return text + 'Z';
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

StandardLog::StandardLog(Sink sink) : messageSink_(sink), diagnosticSink_(std::move(sink)) {}

void StandardLog::setSink(const Sink& sink) {
    setMessageSink(sink);
    setDiagnosticSink(sink);
}

void StandardLog::setMessageSink(Sink sink) {
    messageSink_ = std::move(sink);
}

void StandardLog::setDiagnosticSink(Sink sink) {
    diagnosticSink_ = std::move(sink);
}

const StandardLog::Sink& StandardLog::sink(Category category) const {
    return category == Category::message ? messageSink_ : diagnosticSink_;
}

bool StandardLog::isEnabled(Category category) const {
    return sink(category) != nullptr;
}

void StandardLog::writeLine(Category category, std::string_view line) {
    // Copied, for a sink may set another.
    const Sink called = sink(category);
    called(line);
}

}  // namespace zobi::platform
