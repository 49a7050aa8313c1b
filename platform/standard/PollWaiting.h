#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/standard/PollSource.h"
#include "zobi/platform/standard/Waiting.h"

struct pollfd;

namespace zobi::platform {

/// Waits in `poll`, on a pipe to which `wake` writes and on the descriptors of its sources. For POSIX
/// systems. It lets the loop drive a radio through descriptors, and be driven from a foreign loop.
class ZOBI_EXPORT PollWaiting final : public Waiting {
public:
    /// Waits only for `wake` until a source is added.
    /// @throws std::system_error if the process has no descriptor left.
    PollWaiting();
    ~PollWaiting() override;
    PollWaiting(const PollWaiting&) = delete;
    PollWaiting& operator=(const PollWaiting&) = delete;

    /// Polls `source` too, as long as it exists. Sources that are ready in the same poll are called in the
    /// order in which they were added. Main thread only, not from inside a wait.
    void add(std::weak_ptr<PollSource> source);

    void wait(std::optional<std::chrono::nanoseconds> timeout) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::vector<RunLoopDescriptor> descriptors() const override;

private:
    void emptyPipe() const;

    std::vector<std::weak_ptr<PollSource>> sources_;
    // What a wait polls: the pipe, then each source. Kept, so that a wait allocates nothing.
    std::vector<pollfd> polled_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

}  // namespace zobi::platform
