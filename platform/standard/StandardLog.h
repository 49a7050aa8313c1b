#pragma once

#include <functional>
#include <string_view>

#include "platform/Clock.h"
#include "platform/Export.h"
#include "platform/Log.h"

namespace platform {

/// A log that hands its lines to a callable, or is off. Lines may come from several threads at once if the
/// sink bears it, as the one to stderr does; the sink itself is set while no other thread logs.
class ZOK_EXPORT StandardLog final : public Log {
public:
    /// Takes one line, without a line feed; valid for the length of the call.
    using Sink = std::function<void(std::string_view line)>;

    /// A sink that prints each entry on stderr as one line: the wall-clock time in UTC to the millisecond,
    /// then the text, its control characters printed as "\x0A". The clock must outlive the sink.
    static Sink stderrSink(const Clock& clock);

    /// @param sink where lines go; null turns the log off.
    explicit StandardLog(Sink sink);

    void setSink(Sink sink);

    bool isEnabled() const override;

protected:
    void writeLine(std::string_view line) override;

private:
    Sink sink_;
};

}  // namespace platform
