#pragma once

#include <functional>
#include <string_view>

#include "zobi/platform/Clock.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"

namespace zobi::platform {

/// A log that passes the lines of each category to a function, or is off for them. If several threads log at
/// once, the sink is called by several threads at once; the one to stderr allows that. Set the sink while no
/// other thread logs.
class ZOBI_EXPORT StandardLog final : public Log {
public:
    /// Receives one line, without a line feed at its end. The text is valid until it returns.
    using Sink = std::function<void(std::string_view line)>;

    /// A sink that prints each line to stderr: the time of `clock` in UTC with milliseconds, then the text,
    /// with control characters as in "\x0A". The clock must outlive the sink.
    static Sink stderrSink(const Clock& clock);

    /// @param sink receives the lines of both categories; an empty one turns the log off.
    explicit StandardLog(Sink sink);

    /// Sets the sink of both categories; an empty one turns the log off.
    void setSink(const Sink& sink);
    /// Sets the sink of the messages; an empty one turns them off.
    void setMessageSink(Sink sink);
    /// Sets the sink of the diagnostic lines; an empty one turns them off.
    void setDiagnosticSink(Sink sink);

    bool isEnabled(Category category) const override;

protected:
    void writeLine(Category category, std::string_view line) override;

private:
    const Sink& sink(Category category) const;

    Sink messageSink_;
    Sink diagnosticSink_;
};

}  // namespace zobi::platform
