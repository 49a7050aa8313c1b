#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "platform/Export.h"
#include "platform/standard/Waiting.h"

namespace platform {

/// Waits in `poll`, on a descriptor of its own that `wake` makes readable: for POSIX systems, and for driving
/// the loop from a foreign one.
class ZOK_EXPORT PollWaiting final : public Waiting {
public:
    /// @throws std::system_error when the process has no descriptor left.
    PollWaiting();
    ~PollWaiting() override;
    PollWaiting(const PollWaiting&) = delete;
    PollWaiting& operator=(const PollWaiting&) = delete;

    void wait(std::optional<std::chrono::nanoseconds> timeout) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::vector<RunLoopDescriptor> descriptors() const override;

private:
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

}  // namespace platform
