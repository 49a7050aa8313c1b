#pragma once

#include "zobi/platform/RunLoop.h"

namespace zobi::tool {

/// While it lives, SIGINT, SIGTERM, SIGHUP and SIGQUIT stop a run loop, except those that whoever started
/// the process has it ignore, as nohup does.
class StopOnSignal {
public:
    explicit StopOnSignal(platform::RunLoop& runLoop);
    ~StopOnSignal();
    StopOnSignal(const StopOnSignal&) = delete;
    StopOnSignal& operator=(const StopOnSignal&) = delete;

    /// Whether a signal has come since the last call.
    static bool take();
};

}  // namespace zobi::tool
