#pragma once

#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/standard/Waiting.h"

struct pollfd;

namespace zobi::platform {

/// Waits in `poll`, on a pipe to which `wake` writes and on the descriptors of the loop's sources. For POSIX
/// systems. It lets the loop drive a radio through descriptors, and be driven from a foreign loop.
class ZOBI_EXPORT PollWaiting final : public Waiting {
public:
    /// @throws std::system_error if the process has no descriptor left.
    PollWaiting();
    ~PollWaiting() override;
    PollWaiting(const PollWaiting&) = delete;
    PollWaiting& operator=(const PollWaiting&) = delete;

    void wait(std::optional<std::chrono::nanoseconds> timeout,
              std::span<WaitedDescriptor> descriptors) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::optional<RunLoopDescriptor> wakeDescriptor() const override;

private:
    void emptyPipe() const;

    // What a wait polls: the pipe, then each descriptor. Kept, so that a wait allocates nothing.
    std::vector<pollfd> polled_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

}  // namespace zobi::platform
