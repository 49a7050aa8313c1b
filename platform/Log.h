#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/NSNumber.h"

namespace platform {

/// An argument of a log line. Holds a view of a text, so it lives no longer than the call it is made for.
class ZOK_EXPORT LogArgument {
public:
    LogArgument(std::string_view text) : kind_(Kind::text), text_(text) {}
    LogArgument(const std::string& text) : LogArgument(std::string_view(text)) {}
    LogArgument(const char* text) : LogArgument(std::string_view(text)) {}
    LogArgument(NSNumber number) : kind_(Kind::number), number_(number) {}
    LogArgument(double value) : kind_(Kind::real), real_(value) {}
    /// Prints as "YES" or "NO".
    template <std::same_as<bool> T>
    LogArgument(T value) : LogArgument(std::string_view(value ? "YES" : "NO")) {}
    template <std::integral T>
    requires(!std::same_as<T, bool>) LogArgument(T value)
        : kind_(Kind::integer), integer_(static_cast<std::int64_t>(value)) {}

    void appendTo(std::string& line) const;

private:
    enum class Kind : std::uint8_t { text, number, integer, real };

    Kind kind_;
    std::string_view text_;
    NSNumber number_;
    std::int64_t integer_ = 0;
    double real_ = 0;
};

/// The system log: free-text diagnostic lines. Safe from any thread, as decoding is.
class ZOK_EXPORT Log {
public:
    virtual ~Log() = default;

    /// False when lines go nowhere. Ask before preparing a costly argument.
    virtual bool isEnabled() const = 0;

    /// Writes one line. Each conversion in `format` ("%@", "%d", "%lu", "%f") is replaced by the next
    /// argument, printed as its own type has it: a real number with six decimals, an absent number as
    /// "(null)". No locale is followed. Costs nothing but the test when the log is off.
    template <typename... Arguments>
    void log(std::string_view format, const Arguments&... arguments) {
        if (isEnabled()) writeFormatted(format, {LogArgument(arguments)...});
    }

protected:
    /// Takes one finished line, which has no line feed at its end.
    virtual void writeLine(std::string_view line) = 0;

private:
    void writeFormatted(std::string_view format, std::initializer_list<LogArgument> arguments);
};

}  // namespace platform
