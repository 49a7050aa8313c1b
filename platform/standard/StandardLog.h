#pragma once

#include <functional>
#include <string_view>

#include "zobi/platform/Clock.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"

namespace zobi::platform {

/// A log that passes its lines to a function, or is off. If several threads log at once, the sink is called
/// by several threads at once; the one to stderr allows that. Set the sink while no other thread logs.
class ZOBI_EXPORT StandardLog final : public Log {
public:
    /// Receives one line, without a line feed at its end. The text is valid until it returns.
    using Sink = std::function<void(std::string_view line)>;

    /// A sink that prints each line to stderr: the time of `clock` in UTC with milliseconds, then the text,
    /// with control characters as in "\x0A". The clock must outlive the sink.
    static Sink stderrSink(const Clock& clock);

    /// @param sink receives the lines; an empty one turns the log off.
    explicit StandardLog(Sink sink);

    /// Sets the sink; an empty one turns the log off.
    void setSink(Sink sink);

    bool isEnabled() const override;

protected:
    void writeLine(std::string_view line) override;

private:
    Sink sink_;
};

}  // namespace zobi::platform
