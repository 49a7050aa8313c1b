#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "zobi/platform/Export.h"
#include "zobi/platform/NSNumber.h"

namespace zobi::platform {

/// An argument of `Log::log`. It may hold a view of a text, so it is valid only for the call that it is made
/// for.
class ZOBI_EXPORT LogArgument {
public:
    /// A text.
    LogArgument(std::string_view text) : kind_(Kind::text), text_(text) {}
    /// A text.
    LogArgument(const std::string& text) : LogArgument(std::string_view(text)) {}
    /// A text that ends with a zero character.
    LogArgument(const char* text) : LogArgument(std::string_view(text)) {}
    /// A number, printed in decimal; "(null)" without a value.
    LogArgument(NSNumber number) : kind_(Kind::number), number_(number) {}
    /// A real number, printed with six decimals.
    LogArgument(double value) : kind_(Kind::real), real_(value) {}
    /// A truth value, printed as "YES" or "NO".
    template <std::same_as<bool> T>
    LogArgument(T value) : LogArgument(std::string_view(value ? "YES" : "NO")) {}
    /// An integer of up to 64 bits, printed in decimal as a signed one.
    template <std::integral T>
    requires(!std::same_as<T, bool>) LogArgument(T value)
        : kind_(Kind::integer), integer_(static_cast<std::int64_t>(value)) {}

    /// Appends the printed argument to `line`.
    void appendTo(std::string& line) const;

private:
    enum class Kind : std::uint8_t { text, number, integer, real };

    Kind kind_;
    std::string_view text_;
    NSNumber number_;
    std::int64_t integer_ = 0;
    double real_ = 0;
};

/// The log: lines of text, in two categories that are switched apart. Safe from any thread.
class ZOBI_EXPORT Log {
public:
    /// Whom a line is for.
    enum class Category : std::uint8_t {
        message,    ///< A person: what is in the way, and what to do about it. There are few of them.
        diagnostic  ///< Who examines a program: what the library does, in several lines a second.
    };

    virtual ~Log();

    /// False when lines of this category are discarded. Check it before computing an expensive argument.
    virtual bool isEnabled(Category category) const = 0;

    /// Writes one diagnostic line. Each conversion in `format` ("%@", "%d", "%lu", "%f") is replaced by the
    /// next argument, which is printed according to its own type (see `LogArgument`), whatever the conversion
    /// and the locale. Does nothing unless `isEnabled`.
    template <typename... Arguments>
    void log(std::string_view format, const Arguments&... arguments) {
        if (!isEnabled(Category::diagnostic)) return;
        writeFormatted(Category::diagnostic, format, {LogArgument(arguments)...});
    }

    /// Writes one message, in the same way.
    template <typename... Arguments>
    void message(std::string_view format, const Arguments&... arguments) {
        if (!isEnabled(Category::message)) return;
        writeFormatted(Category::message, format, {LogArgument(arguments)...});
    }

protected:
    /// Writes one finished line. It does not end with a line feed. May be called from any thread.
    virtual void writeLine(Category category, std::string_view line) = 0;

private:
    void writeFormatted(Category category, std::string_view format,
                        std::initializer_list<LogArgument> arguments);
};

}  // namespace zobi::platform
